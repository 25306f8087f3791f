#!/usr/bin/env python3
"""Real hosts around the switch: network namespaces joined by veth pairs, kybridge-host in one of its own.

    namespaces_test.py HOST [CASE...]

Exits with 77, and says why, where the machine does not allow namespaces. Everything that it makes carries its
process number, and is removed whatever happens.
"""
import contextlib
import ctypes
import os
import select
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

ETH_P_ALL = 3
ETH_P_VLAN = 0x8100
SOL_PACKET, PACKET_AUXDATA = 263, 8
CLONE_NEWNET = 0x40000000
BROADCAST = b"\xff" * 6
TAG = os.getpid() % 100000
NAMES = ("a", "b", "c", "d")  # hosts; each is on the port of the same name


def run(*command, check=True):
    return subprocess.run(command, check=check, text=True, capture_output=True)


def namespace(name):
    return f"ky{TAG}{name}"


@contextlib.contextmanager
def inside(name):
    """Sockets that are made meanwhile belong to the namespace."""
    libc = ctypes.CDLL(None, use_errno=True)
    with open("/proc/self/ns/net") as home, open(f"/run/netns/{namespace(name)}") as there:
        if libc.setns(there.fileno(), CLONE_NEWNET) != 0:
            raise OSError(ctypes.get_errno(), "setns")
        try:
            yield
        finally:
            libc.setns(home.fileno(), CLONE_NEWNET)


class Network:
    """The switch's namespace and the hosts', removed on the way out."""

    def __enter__(self):
        try:
            for name in ("sw", *NAMES):
                run("ip", "netns", "add", namespace(name))
                run("ip", "-n", namespace(name), "link", "set", "lo", "up")
            for index, name in enumerate(NAMES, 1):
                run("ip", "-n", namespace("sw"), "link", "add", f"p{name}", "type", "veth", "peer", "name", "eth0",
                    "netns", namespace(name))
                # Only addresses that the test gives: no router solicitations, no duplicate address detection.
                for space, interface in ((namespace("sw"), f"p{name}"), (namespace(name), "eth0")):
                    run("ip", "netns", "exec", space, "sysctl", "-qw", f"net.ipv6.conf.{interface}.accept_dad=0",
                        f"net.ipv6.conf.{interface}.router_solicitations=0")
                run("ip", "netns", "exec", namespace("sw"), "sysctl", "-qw", f"net.ipv6.conf.p{name}.disable_ipv6=1")
                run("ip", "-n", namespace(name), "link", "set", "eth0", "address", f"02:00:00:00:00:0{index}")
                run("ip", "-n", namespace("sw"), "link", "set", f"p{name}", "up")
                run("ip", "-n", namespace(name), "link", "set", "eth0", "up")
                run("ip", "-n", namespace(name), "addr", "add", f"10.0.0.{index}/24", "dev", "eth0")
                run("ip", "-n", namespace(name), "addr", "add", f"fd00::{index}/64", "dev", "eth0", "nodad")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for name in ("sw", *NAMES):
            run("ip", "netns", "del", namespace(name), check=False)


class Switch:
    """kybridge-host, forwarding; commands go to its control socket."""

    def __init__(self, program, script, *options, **streams):
        self.folder = tempfile.TemporaryDirectory()
        path = f"{self.folder.name}/script.kyb"
        ports = "\n".join(f"port announce 0x1000{i} as {name}\nport set {name} pvid 100"
                          for i, name in enumerate(NAMES, 1))
        with open(path, "w") as file:
            file.write(f"start bridges 128 virtual-ports 512\n{ports}\n{script}")
        attach = [word for name in NAMES for word in ("--attach", f"{name}=p{name}")]
        self.command = ["ip", "netns", "exec", namespace("sw"), program, *attach, "--control",
                        f"{self.folder.name}/control", *options, path]
        self.process = subprocess.Popen(self.command, text=True, **{
            "stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, **streams})
        self.output = []
        while not self.output or "forwarding between" not in self.output[-1]:
            line = self.process.stdout.readline()
            self.output.append(line)
            assert line, "kybridge-host ended: " + "".join(self.output)
        self.control = self.connect()

    def connect(self):
        client = socket.socket(socket.AF_UNIX)
        client.settimeout(20)
        client.connect(f"{self.folder.name}/control")
        return client

    def __call__(self, *commands):
        """Carries out commands. @return what they answered"""
        self.control.sendall("".join(f"{command}\n" for command in (*commands, "say done")).encode())
        answer = ""
        while not answer.endswith("done\n"):
            part = self.control.recv(65536).decode()
            assert part, "the control connection closed: " + answer
            answer += part
        assert "control: " not in answer, answer
        return answer

    def stop(self, how=signal.SIGTERM):
        """Ends it in order. @return what it said at the end"""
        self.control.close()
        self.process.send_signal(how)
        rest = self.process.communicate(timeout=20)[0]
        assert self.process.returncode == 0, rest
        assert "left over: nothing" in rest, rest
        return rest

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()


class Station:
    """A host's end of the wire, for frames that its own network stack cannot make or would not show."""

    def __init__(self, name):
        with inside(name):
            self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
            self.socket.bind(("eth0", ETH_P_ALL))
        self.socket.setsockopt(SOL_PACKET, PACKET_AUXDATA, 1)
        self.mac = bytes((2, 0, 0, 0, 0, NAMES.index(name) + 1))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, destination, payload, vlan=None, ether_type=0x88B5, pcp=0, source=None):
        tag = b"" if vlan is None else struct.pack("!HH", ETH_P_VLAN, pcp << 13 | vlan)
        self.socket.send(destination + (source or self.mac) + tag + struct.pack("!H", ether_type) +
                         payload.ljust(46, b"\0"))

    def receive(self, wanted, seconds=2.0):
        """The first frame that arrives with these bytes in it. @return (VLAN or None, PCP, frame without tag), or None"""
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            if not select.select([self.socket], [], [], left)[0]:
                return None
            frame, controls, _, address = self.socket.recvmsg(65536, 64)
            if address[2] == socket.PACKET_OUTGOING or wanted not in frame:
                continue
            for level, kind, data in controls:
                if (level, kind) == (SOL_PACKET, PACKET_AUXDATA):
                    status, *_, tci, _ = struct.unpack("IIIHHHH", data)
                    if status & 0x10:  # TP_STATUS_VLAN_VALID: the kernel took the tag out
                        return tci & 0xFFF, tci >> 13, frame
            if frame[12:14] == b"\x81\x00":
                tci, = struct.unpack("!H", frame[14:16])
                return tci & 0xFFF, tci >> 13, frame[:12] + frame[16:]
            return None, 0, frame
        return None


def ping(name, address, count=3, interval=0.05):
    """@return echo requests that were answered"""
    result = run("ip", "netns", "exec", namespace(name), "ping", "-c", str(count), "-i", str(interval), "-W", "2",
                 address, check=False)
    return int(result.stdout.split(" received")[0].split()[-1]) if " received" in result.stdout else 0


def crosses(sender, receivers, others, destination, payload, vlan=None):
    """Sends a frame and checks that it reaches exactly the receivers. @param receivers {station: VLAN or None}"""
    sender.send(destination, payload, vlan)
    for station, expected in receivers.items():
        got = station.receive(payload)
        assert got is not None and got[0] == expected, f"{payload}: expected VLAN {expected}, got {got}"
    for station in others:
        got = station.receive(payload, 0.3)
        assert got is None, f"{payload} leaked: {got}"


def untagged_bridge(*names, bridge="red"):
    return f"bridge create as {bridge}\nlearning {bridge} auto\n" + "".join(
        f"vport add {bridge} {name} vlan 100 untagged\n" for name in names)


# ---- Cases; each gets the program and starts the switch as it needs it -------------------------------------


def pings_in_a_bridge(start):
    """IPv4 and IPv6 between untagged members; a tagged member talks to them in frames of its own making."""
    switch = start(untagged_bridge("a", "b") + "vport add red c vlan 100 tagged\n")
    assert ping("a", "10.0.0.2") == 3
    assert ping("a", "fd00::2") == 3
    with Station("c") as tagged:
        request = struct.pack("!HHBBH6s4s6s4s", 1, 0x0800, 6, 4, 1, tagged.mac, socket.inet_aton("10.0.0.3"),
                              bytes(6), socket.inet_aton("10.0.0.1"))
        tagged.send(BROADCAST, request, vlan=100, ether_type=0x0806, pcp=5)
        reply = tagged.receive(socket.inet_aton("10.0.0.1") + tagged.mac)
        assert reply is not None and reply[0] == 100, f"no tagged ARP reply: {reply}"
        tagged.send(bytes.fromhex("020000000001"), ipv4_echo_request("10.0.0.3", "10.0.0.1"), vlan=100,
                    ether_type=0x0800)
        reply = tagged.receive(b"\0\0" + ECHO_CHECKSUM_OF_REPLY)
        assert reply is not None and reply[0] == 100, f"no tagged echo reply: {reply}"
        solicitation = ipv6_neighbour_solicitation(tagged.mac, "fd00::3", "fd00::1")
        tagged.send(b"\x33\x33\xff\x00\x00\x01", solicitation, vlan=100, ether_type=0x86DD)
        reply = tagged.receive(b"\x88\x00")  # a neighbour advertisement
        assert reply is not None and reply[0] == 100, f"no tagged IPv6 reply: {reply}"
    assert "tagged: vlan 100" not in switch("show counters")


def checksum(data):
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    total = (total & 0xFFFF) + (total >> 16)
    return ~((total & 0xFFFF) + (total >> 16)) & 0xFFFF


ECHO = struct.pack("!HH", 0x4B59, 1)  # identifier and sequence number
ECHO_CHECKSUM_OF_REPLY = struct.pack("!H", checksum(b"\0\0\0\0" + ECHO)) + ECHO


def ipv4_echo_request(source, destination):
    message = struct.pack("!BBH", 8, 0, checksum(b"\x08\0\0\0" + ECHO)) + ECHO
    header = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(message), 1, 0, 64, 1, 0, socket.inet_aton(source),
                         socket.inet_aton(destination))
    return header[:10] + struct.pack("!H", checksum(header)) + header[12:] + message


def ipv6_neighbour_solicitation(mac, source, target):
    addresses = socket.inet_pton(socket.AF_INET6, source), socket.inet_pton(socket.AF_INET6, target)
    destination = bytes.fromhex("ff0200000000000000000001ff") + addresses[1][-3:]
    message = struct.pack("!BBHI16sBB6s", 135, 0, 0, 0, addresses[1], 1, 1, mac)
    pseudo = addresses[0] + destination + struct.pack("!II", len(message), 58) + message
    message = message[:2] + struct.pack("!H", checksum(pseudo)) + message[4:]
    return struct.pack("!IHBB16s16s", 6 << 28, len(message), 58, 255, addresses[0], destination) + message


def bridges_do_not_leak(start):
    """The same VLAN number on different ports of two bridges, and two VLANs of one port in two bridges."""
    start("bridge create as red\nvport add red a vlan 100 tagged\nvport add red b vlan 100 tagged\n"
          "bridge create as blue\nvport add blue c vlan 100 tagged\nvport add blue d vlan 100 tagged\n"
          "bridge create as green\nvport add green a vlan 200 tagged\nvport add green c vlan 200 tagged\n")
    with Station("a") as a, Station("b") as b, Station("c") as c, Station("d") as d:
        crosses(a, {b: 100}, [c, d], BROADCAST, b"red from a", vlan=100)
        crosses(d, {c: 100}, [a, b], BROADCAST, b"blue from d", vlan=100)
        crosses(a, {c: 200}, [b, d], BROADCAST, b"green from a", vlan=200)
        crosses(a, {}, [b, c, d], BROADCAST, b"unknown VLAN", vlan=300)


def flooding_and_learning(start):
    """Unknown unicast floods the bridge and nothing else; once learned it does not, unless the mode is 0."""
    switch = start(untagged_bridge("a", "b", "c"))
    for learns in (True, False):
        switch(f"learning red {'auto' if learns else 'off'}", "fdb flush")
        # An address that no kernel has, so that nobody but this test answers for it.
        station = bytes((2, 0, 0, 0, 1, int(learns)))
        with Station("a") as a, Station("b") as b, Station("c") as c, Station("d") as d:
            crosses(a, {b: None, c: None}, [d], station, b"unknown %d" % learns)
            b.send(BROADCAST, b"here I am %d" % learns, source=station)
            assert a.receive(b"here I am %d" % learns) is not None
            crosses(a, {b: None} if learns else {b: None, c: None}, [c, d] if learns else [d], station,
                    b"known %d" % learns)


def discarding_passes_nothing(start):
    switch = start(untagged_bridge("a", "b"))
    assert ping("a", "10.0.0.2") == 3
    switch("port set b rstp discarding")
    assert ping("a", "10.0.0.2", count=2) == 0
    switch("port set b rstp forwarding")
    assert ping("a", "10.0.0.2") == 3


def changes_elsewhere_lose_nothing(start):
    """Everything around a ping changes; the ping's own ports are not touched."""
    switch = start(untagged_bridge("a", "b"))
    pinging = subprocess.Popen(["ip", "netns", "exec", namespace("a"), "ping", "-q", "-c", "300", "-i", "0.01",
                                "10.0.0.2"], stdout=subprocess.PIPE, text=True)
    rounds = 0
    while pinging.poll() is None:
        switch("vport add red c vlan 100 untagged", "bridge create as blue", "vport add blue c vlan 200 tagged",
               "vport add blue d vlan 200 tagged", "learning blue auto", "vport delete red c vlan 100 untagged",
               "port clear c release", "port restore c swid 0", "port clear d", "bridge destroy blue", "verify")
        rounds += 1
    report = pinging.communicate()[0]
    assert "300 received" in report, report
    assert rounds > 3, "too few changes to show anything"


def tcp_transfer(start):
    """100 MB arrive whole."""
    start(untagged_bridge("a", "b"))
    size = 100 * 1000 * 1000
    pattern = bytes(range(256)) * 4096
    with inside("b"):
        listener = socket.create_server(("10.0.0.2", 5000))
    sender = os.fork()
    if sender == 0:
        with inside("a"):
            connection = socket.create_connection(("10.0.0.2", 5000), timeout=20)
        sent = 0
        while sent < size:
            sent += connection.send(pattern[sent % len(pattern):][:size - sent])
        connection.close()
        os._exit(0)
    listener.settimeout(20)
    connection, _ = listener.accept()
    connection.settimeout(20)
    received = 0
    while part := connection.recv(1 << 20):
        expected = (pattern + pattern)[received % len(pattern):][:len(part)]
        assert part == expected, f"damaged near byte {received}"
        received += len(part)
    assert os.waitpid(sender, 0)[1] == 0
    assert received == size, f"{received} bytes arrived"


def interfaces_come_and_go(start):
    """An interface that goes down or away takes its port with it, with a notice, and nothing else."""
    switch = start(untagged_bridge("a", "b", "c"))
    assert ping("a", "10.0.0.3") == 3
    run("ip", "-n", namespace("sw"), "link", "set", "pc", "down")
    assert ping("a", "10.0.0.2") == 3
    assert ", down" in switch("show ports"), "the port is still up"
    run("ip", "-n", namespace("sw"), "link", "set", "pc", "up")
    assert ping("a", "10.0.0.3") == 3
    run("ip", "-n", namespace("sw"), "link", "del", "pc")
    assert ping("a", "10.0.0.2") == 3
    assert "verified" in switch("verify")
    rest = switch.stop(signal.SIGINT)
    notices = [line.split("pc ")[1] for line in rest.splitlines() if line.startswith("port c is ")]
    assert notices[:2] == ["went down", "came up"] and notices[-1] == "went away", rest
    assert "gone" in rest, rest


def example(start):
    """The example says what it does, and leaves no namespace behind."""
    script = os.path.join(os.path.dirname(__file__), "../../examples/live-ping.sh")
    process = subprocess.Popen([script, sys.argv[1]], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    output = process.communicate(timeout=30)[0]
    assert process.returncode == 0 and "3 received" in output, output
    assert f"kybridge-{process.pid}" not in run("ip", "netns", "list").stdout


CASES = [pings_in_a_bridge, bridges_do_not_leak, flooding_and_learning, discarding_passes_nothing,
         changes_elsewhere_lose_nothing, tcp_transfer, interfaces_come_and_go, example]


def why_not():
    """Why namespaces cannot be had here; empty: they can."""
    if os.geteuid() != 0:
        return "network namespaces need root"
    if missing := [tool for tool in ("ip", "ping", "sysctl", "ethtool") if not shutil.which(tool)]:
        return f"not installed: {', '.join(missing)}"
    probe = namespace("probe")
    try:
        run("ip", "netns", "add", probe)
        run("ip", "-n", probe, "link", "add", "x0", "type", "veth", "peer", "name", "x1")
    except (OSError, subprocess.CalledProcessError) as error:
        return f"network namespaces with veth pairs are not to be had: {getattr(error, 'stderr', '') or error}"
    finally:
        subprocess.run(("ip", "netns", "del", probe), check=False, capture_output=True)
    return ""


def main(cases):
    program, wanted = os.path.abspath(sys.argv[1]), sys.argv[2:]
    if reason := why_not():
        print(f"skipped: {reason}")
        return 77
    failures = 0
    for case in cases:
        if wanted and case.__name__ not in wanted:
            continue
        switches = []

        def start(*arguments, **streams):
            switches.append(Switch(program, *arguments, **streams))
            return switches[-1]

        began = time.monotonic()
        try:
            with Network():
                try:
                    case(start)
                    for switch in switches:
                        if switch.process.poll() is None:
                            switch.stop()
                finally:
                    for switch in switches:
                        switch.kill()
            print(f"ok      {case.__name__} ({time.monotonic() - began:.1f} s)", flush=True)
        except Exception as error:  # the other cases go on
            failures += 1
            print(f"FAILED  {case.__name__}: {type(error).__name__}: {error}", flush=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(CASES))
