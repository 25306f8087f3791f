#!/usr/bin/env python3
"""What the switch does to traffic that its senders left unfinished, to bursts, and to links that come and go.

    traffic_test.py HOST [CASE...]
"""
import contextlib
import fcntl
import hashlib
import os
import signal
import socket
import struct
import sys
import time

from namespaces_test import BROADCAST, Station, inside, main, namespace, ping, run, untagged_bridge

SOL_UDP, UDP_SEGMENT = 17, 103
TUNSETIFF, IFF_TAP, IFF_NO_PI, IFF_VNET_HDR = 0x400454CA, 0x2, 0x1000, 0x4000
VIRTIO_NET_HDR_GSO_UDP, VIRTIO_NET_HDR_GSO_UDP_L4 = 3, 5
ADDRESSES = {"a": ("10.0.0.1", "fd00::1"), "b": ("10.0.0.2", "fd00::2")}


def set_offloads(setting, *interfaces):
    for name, interface in interfaces:
        run("ip", "netns", "exec", namespace(name), "ethtool", "-K", interface,
            *(word for feature in ("rx", "tx", "tso", "gso") for word in (feature, setting)))


def within_child(name, work):
    """Runs work in a process inside a namespace. @return its number"""
    if (child := os.fork()) == 0:
        try:
            with inside(name):
                work()
            os._exit(0)
        finally:
            os._exit(1)
    return child


def transfer(source, target, family, kind):
    """Sends 4 MB by TCP, or 40 datagrams in one piece by UDP, and checks that all arrives as it was sent."""
    address = ADDRESSES[target][family == socket.AF_INET6]
    data = os.urandom(4 << 20) if kind == socket.SOCK_STREAM else os.urandom(40 * 1000)
    with inside(target):
        receiver = socket.socket(family, kind)
    with receiver:
        receiver.settimeout(10)
        receiver.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        receiver.bind((address, 5000))

        def send():
            with socket.socket(family, kind) as sender:
                sender.connect((address, 5000))
                if kind == socket.SOCK_DGRAM:
                    sender.setsockopt(SOL_UDP, UDP_SEGMENT, 1000)
                sender.sendall(data)
        if kind == socket.SOCK_STREAM:
            receiver.listen()
        child = within_child(source, send)
        if kind == socket.SOCK_STREAM:
            connection = receiver.accept()[0]
            connection.settimeout(10)
            with connection, connection.makefile("rb") as stream:
                arrived = stream.read()
        else:
            arrived = b"".join(receiver.recv(2000) for _ in range(40))
        assert os.waitpid(child, 0)[1] == 0
    assert hashlib.sha256(arrived).digest() == hashlib.sha256(data).digest(), f"{len(arrived)} of {len(data)} bytes"


def unfinished_segments(start):
    """TCP and UDP of untagged hosts over a tagged link, in both directions, finished by whoever must."""
    for name in "cd":
        run("ip", "-n", namespace("sw"), "link", "del", f"p{name}")
    run("ip", "-n", namespace("sw"), "link", "add", "pc", "type", "veth", "peer", "name", "pd")
    for name in "cd":
        run("ip", "-n", namespace("sw"), "link", "set", f"p{name}", "up")
    # a, untagged - bridge red - c, tagged = the link = d, tagged - bridge blue - b, untagged
    switch = start(untagged_bridge("a") + "vport add red c vlan 100 tagged\n" +
                   untagged_bridge("b", bridge="blue") + "vport add blue d vlan 100 tagged\n")
    untagged = [("a", "eth0"), ("b", "eth0"), ("sw", "pa"), ("sw", "pb")]
    tagged = [("sw", "pc"), ("sw", "pd")]
    # Nobody finishes anything; all is finished by its sender; by the kernel in front of the tagged link, or behind it.
    for without in ([], untagged + tagged, tagged, untagged[2:], untagged[1:2]):
        set_offloads("on", *untagged, *tagged)
        set_offloads("off", *without)
        for family in (socket.AF_INET, socket.AF_INET6):
            for kind in (socket.SOCK_STREAM, socket.SOCK_DGRAM):
                for source, target in ("ab", "ba"):
                    transfer(source, target, family, kind)
    assert "oversized" not in switch("show counters")


def short_frames_are_padded(start):
    start(untagged_bridge("a", "b") + "vport add red c vlan 100 tagged\n")
    with Station("a") as a, Station("c") as c:
        c.socket.send(BROADCAST + c.mac + struct.pack("!HHH", 0x8100, 100, 0x88B5) + b"short".ljust(42, b"\0"))
        _, _, frame = a.receive(b"short")
        assert len(frame) == 60, len(frame)


def received(name):
    return int(run("ip", "netns", "exec", namespace(name), "cat", "/sys/class/net/eth0/statistics/rx_packets").stdout)


def bursts(start):
    """A burst that comes while the switch does something else waits for it; of one that is too long, it tells."""
    for options, count in ((), 16384), (("--buffer", "1"), 4000):
        switch = start(untagged_bridge("a", "b"), *options)
        with Station("b") as b, Station("a") as a:
            b.send(BROADCAST, b"here I am")
            assert a.receive(b"here I am") is not None
            before = received("b")
            switch.process.send_signal(signal.SIGSTOP)
            for _ in range(count):
                a.send(b.mac, b"burst")
            switch.process.send_signal(signal.SIGCONT)
            end = time.monotonic() + 10
            while time.monotonic() < end and received("b") < before + count:
                time.sleep(0.1)
                if options:
                    break
            arrived = received("b") - before
        if not options:
            assert arrived >= count, f"{arrived} of {count}"
            switch.stop()
        else:
            line = switch.process.stdout.readline()
            assert "interface pa missed" in line and "--buffer" in line, line


def undescribed_frames(start):
    """A UDP packet that is left to be fragmented, which no virtio-net header tells of, costs its port a moment only."""
    if not os.path.exists("/dev/net/tun"):
        print("        not tried: no /dev/net/tun")
        return
    run("ip", "-n", namespace("sw"), "link", "del", "pd")
    with inside("sw"):
        tap = os.open("/dev/net/tun", os.O_RDWR)
        fcntl.ioctl(tap, TUNSETIFF, struct.pack("16sH22x", b"pd", IFF_TAP | IFF_NO_PI | IFF_VNET_HDR))
    run("ip", "-n", namespace("sw"), "link", "set", "pd", "up")
    start(untagged_bridge("b", "d"))

    def write(payload, cut=0):
        udp = struct.pack("!HHHH", 1000, 2000, 8 + len(payload), 0) + payload
        ip = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 1, 0, 64, 17, 0, bytes(4), bytes(4))
        os.write(tap, struct.pack("<BBHHHH", 1, cut, 42 if cut else 0, 1000 if cut else 0, 34, 6) + BROADCAST +
                 bytes.fromhex("0200000000040800") + ip + udp)
    with Station("b") as b:
        write(b"before")
        assert b.receive(b"before") is not None
        write(b"undescribed" + bytes(3000), VIRTIO_NET_HDR_GSO_UDP)
        end = time.monotonic() + 10
        while time.monotonic() < end:
            write(b"afterwards")
            if b.receive(b"afterwards", 0.2) is not None:
                break
        write(b"segments" + bytes(3000), VIRTIO_NET_HDR_GSO_UDP_L4)
        assert b.receive(b"segments") is not None
    os.close(tap)


def carriers(start):
    """The far end of a cable goes, and comes back; an interface is made again under its name."""
    switch = start(untagged_bridge("a", "b", "c"))
    assert ping("a", "10.0.0.3") == 3
    assert "02:00:00:00:00:03" in switch("show fdb")
    run("ip", "-n", namespace("c"), "link", "set", "eth0", "down")
    assert "port c is down: interface pc has no carrier" in switch.process.stdout.readline()
    assert "02:00:00:00:00:03" not in switch("show fdb") and ", down" in switch("show ports")
    run("ip", "-n", namespace("c"), "link", "set", "eth0", "up")
    assert "port c is up: interface pc came up" in switch.process.stdout.readline()
    assert ping("a", "10.0.0.3") == 3

    run("ip", "-n", namespace("sw"), "link", "del", "pc")
    run("ip", "-n", namespace("sw"), "link", "add", "pc", "type", "veth", "peer", "name", "eth0", "address",
        "02:00:00:00:00:03", "netns", namespace("c"))
    run("ip", "-n", namespace("sw"), "link", "set", "pc", "up")
    run("ip", "-n", namespace("c"), "link", "set", "eth0", "up")
    run("ip", "-n", namespace("c"), "addr", "add", "10.0.0.3/24", "dev", "eth0")
    lines = [switch.process.stdout.readline()]
    while "port c is up" not in lines[-1]:
        lines.append(switch.process.stdout.readline())
    assert any("is there again" in line for line in lines), lines
    assert ping("a", "10.0.0.3") == 3


if __name__ == "__main__":
    sys.exit(main([unfinished_segments, short_frames_are_padded, bursts, undescribed_frames, carriers]))
