#!/usr/bin/env python3
"""The device end of PTF's device socket, spoken to by a client of our own and by nanocat.

    ptf_test.py HOST
"""
import ctypes
import os
import pathlib
import re
import struct
import subprocess
import sys
import tempfile

NN_PAIR, AF_SP, NN_SOL_SOCKET, NN_RCVTIMEO = 16, 1, 0, 5
PORT_ADDED, PORT_REMOVED, LINK_SET, FRAME_IN, FRAME_OUT, INFO_REQUEST, INFO_ANSWER = range(7)
ADDRESS, COUNTERS = range(2)
NORTH, SOUTH, UPLINK = range(3)

TO_RED = bytes.fromhex("ffffffffffff 020000000001 81000064 0800") + bytes(50)
RED_UNTAGGED = TO_RED[:12] + TO_RED[16:]

SCRIPT = """
start bridges 64 virtual-ports 512
port announce 0x10001 as north
port announce 0x10002 as south
port announce 0x10003 as uplink
port set south pvid 100
bridge create as red
vport add red north vlan 100 tagged
vport add red south vlan 100 untagged
vport add red uplink vlan 100 tagged
"""

nanomsg = ctypes.CDLL("libnanomsg.so.5")


class Tester:
    """What PTF is to the device."""

    def __init__(self, address):
        self.socket = nanomsg.nn_socket(AF_SP, NN_PAIR)
        self.wait(5000)
        assert nanomsg.nn_connect(self.socket, address.encode()) >= 0

    def wait(self, milliseconds):
        time = ctypes.c_int(milliseconds)
        nanomsg.nn_setsockopt(self.socket, NN_SOL_SOCKET, NN_RCVTIMEO, ctypes.byref(time), ctypes.sizeof(time))

    def send(self, kind, port, more, data=b""):
        self.send_raw(struct.pack("<iii", kind, port, more) + data)

    def send_raw(self, message):
        assert nanomsg.nn_send(self.socket, message, len(message), 0) == len(message)

    def receive(self):
        """@return (kind, port, more, bytes); nothing when nothing comes"""
        room = ctypes.create_string_buffer(1 << 16)
        size = nanomsg.nn_recv(self.socket, room, len(room), 0)
        return None if size < 0 else (*struct.unpack("<iii", room.raw[:12]), room.raw[12:size])

    def forward(self, port, frame):
        """@return what left, by port, up to the answer to a question that was asked behind the frame"""
        self.send(FRAME_IN, port, len(frame), frame)
        self.send(INFO_REQUEST, NORTH, COUNTERS)
        left = {}
        while (message := self.receive())[0] == FRAME_OUT:
            assert message[2] == len(message[3])
            left[message[1]] = message[3]
        assert message[0] == INFO_ANSWER, message
        return left

    def ask(self, port, what):
        self.send(INFO_REQUEST, port, what)
        kind, answered, more, data = self.receive()
        assert (kind, answered, more) == (INFO_ANSWER, port, what)
        return data

    def close(self):
        nanomsg.nn_close(self.socket)


def start(host, folder):
    """@return the running device, and where it is"""
    address = f"ipc://{folder}/device"
    with open(f"{folder}/script", "w") as script:
        script.write(SCRIPT)
    process = subprocess.Popen([host, "--ptf", address, script.name], text=True, stdin=subprocess.PIPE,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    for line in process.stdout:
        if line.startswith("forwarding"):
            assert line == f"forwarding at {address}\n", line
            for thread in pathlib.Path(f"/proc/{process.pid}/task").iterdir():
                rights = int(re.search(r"CapPrm:\t(\w+)", (thread / "status").read_text())[1], 16)
                assert rights & ~(1 << 13) == 0, f"{thread} may do more than CAP_NET_RAW: {rights:x}"
            return process, address
    raise AssertionError(f"ended with {process.wait()}")


def end(process):
    """@return what it said since the start"""
    said, _ = process.communicate("quit\n", timeout=10)
    assert process.returncode == 0, said
    return said


def frames_links_and_questions(host, folder):
    device, address = start(host, folder)
    tester = Tester(address)
    assert tester.forward(NORTH, TO_RED) == {SOUTH: RED_UNTAGGED, UPLINK: TO_RED}
    assert tester.forward(SOUTH, RED_UNTAGGED) == {NORTH: TO_RED, UPLINK: TO_RED}
    for kind, more in ((LINK_SET, 1), (PORT_REMOVED, 0)):
        tester.send(kind, UPLINK, more)
        assert tester.forward(NORTH, TO_RED) == {SOUTH: RED_UNTAGGED}
        tester.send(PORT_ADDED if kind == PORT_REMOVED else LINK_SET, UPLINK, 0)
        assert tester.forward(NORTH, TO_RED).keys() == {SOUTH, UPLINK}
    assert tester.ask(SOUTH, ADDRESS) == bytes.fromhex("00000000 020000010002")
    assert struct.unpack("<iii", tester.ask(SOUTH, COUNTERS)) == (0, 1, 5)
    assert struct.unpack("<i", tester.ask(SOUTH, 7)) == (1,)

    device.stdin.write("port set south link down\n")  # commands go on beside
    device.stdin.flush()
    while tester.forward(NORTH, TO_RED).keys() != {UPLINK}:
        pass
    tester.close()
    end(device)


def wrong_messages(host, folder):
    device, address = start(host, folder)
    tester = Tester(address)
    tester.send_raw(b"\x03")
    tester.send(FRAME_OUT, NORTH, 0)
    tester.send(-1, NORTH, 0)
    tester.send(LINK_SET, 3, 0)
    tester.send(FRAME_IN, -1, len(TO_RED), TO_RED)
    tester.send(FRAME_IN, NORTH, len(TO_RED) + 1, TO_RED)
    tester.send(FRAME_IN, NORTH, 0)
    assert tester.forward(NORTH, TO_RED).keys() == {SOUTH, UPLINK}
    tester.close()
    ignored = [line.split("ignored: ")[1] for line in end(device).splitlines() if "ignored" in line]
    assert ignored == ["1 bytes; expected 12 or more", "kind 4; expected 0 to 3 or 5", "kind -1; expected 0 to 3 or 5",
                       "port 3; 3 ports were announced, counted from 0", "port -1; 3 ports were announced, counted from 0",
                       f"a frame of {len(TO_RED)} bytes said to have {len(TO_RED) + 1}"], ignored


def nanocat_and_nobody(host, folder):
    """Somebody else's end, then none at all, whose frames are lost without harm."""
    device, address = start(host, folder)
    with open(f"{folder}/question", "wb") as question:
        question.write(struct.pack("<iii", INFO_REQUEST, NORTH, ADDRESS))
    answer = subprocess.run(["nanocat", "--pair", "--connect", address, "--recv-timeout", "2", "--file", question.name,
                             "--hex"], check=True, capture_output=True, text=True).stdout
    expected = struct.pack("<iiii", INFO_ANSWER, NORTH, ADDRESS, 0) + bytes.fromhex("020000010001")
    assert answer.strip('"\n').replace("\\x", "") == expected.hex(), answer
    end(device)


def wrong_addresses(host, folder):
    for address, complaint in (("udp://x", "expected tcp://ADDRESS:PORT or ipc://PATH"),
                               (f"ipc://{folder}/none/device", "none/device: ")):
        ended = subprocess.run([host, "--ptf", address], capture_output=True, text=True,
                               env=dict(os.environ, ASAN_OPTIONS="detect_leaks=0"))  # nanomsg's own, of a failed bind
        assert ended.returncode == 2 and complaint in ended.stderr, ended


def main():
    for case in (frames_links_and_questions, wrong_messages, nanocat_and_nobody, wrong_addresses):
        with tempfile.TemporaryDirectory() as folder:
            case(sys.argv[1], folder)


main()
