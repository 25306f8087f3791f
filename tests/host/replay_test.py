#!/usr/bin/env python3
"""Capture files that kybridge-host replays: frames leave byte by byte as they must, with the times that they came with,
and what cannot be read or written is told.

    replay_test.py HOST
"""
import os
import pathlib
import struct
import subprocess
import sys
import tempfile

MICROSECONDS, NANOSECONDS = 0xA1B2C3D4, 0xA1B23C4D
ETHERNET, RAW_IP = 1, 101
ADDRESSES = bytes.fromhex("ffffffffffff 02000000000a")
PCP_5, PCP_7 = bytes.fromhex("8100 b064"), bytes.fromhex("8100 e064")  # VLAN 100; the first with DEI
PRIORITY = bytes.fromhex("8100 b000")
NO_PCP = bytes.fromhex("8100 0064")
IP = bytes.fromhex("0800 010203")
START = 1700000000

SCRIPT = """
port add 1 as north
port add 2 as south
port add 3 as east
port set north pvid 100
vlan join north 100 tagged
vlan join south 100 tagged
vlan join east 100 untagged
"""


def pcap(resolution, link_type, *frames):
    """@param frames (seconds, fraction, bytes, length on the wire)"""
    return struct.pack("=IHHIIII", resolution, 2, 4, 0, 0, 65535, link_type) + b"".join(
        struct.pack("=IIII", seconds, fraction, len(data), wire) + data for seconds, fraction, data, wire in frames)


def pcapng(*frames):
    blocks = [(0x0A0D0D0A, struct.pack("=IHHq", 0x1A2B3C4D, 1, 0, -1)), (1, struct.pack("=HHI", ETHERNET, 0, 0))]
    for seconds, fraction, data, wire in frames:
        high, low = divmod(seconds * 1000000 + fraction, 1 << 32)
        blocks.append((6, struct.pack("=IIIII", 0, high, low, len(data), wire) + data))
    return b"".join(struct.pack("=II", kind, 12 + len(body)) + body + struct.pack("=I", 12 + len(body))
                    for kind, body in blocks)


def replay(capture, name="in", out="out", port="north", status=0):
    """Replays a file of these bytes in the current folder. @return what the host says of it"""
    pathlib.Path(name).write_bytes(capture)
    done = subprocess.run([HOST], input=f"{SCRIPT}replay {name} into {port} out {out}\n", capture_output=True, text=True,
                          check=False, timeout=30)
    assert done.returncode == status, done
    return done.stdout.split("joined VLAN 100 untagged\n")[-1] + done.stderr


def left(port, out="out"):
    return pathlib.Path(f"{out}-{port}.pcap").read_bytes()


def every_frame_leaves_as_it_must():
    """By what comes in, what leaves tagged and untagged; a frame that loses its tag is padded."""
    long, longest = bytes(1500), bytes(range(256)) * 35 + bytes(238)
    frames = [(ADDRESSES + came, ADDRESSES + tagged, ADDRESSES + untagged) for came, tagged, untagged in (
        (PCP_5 + IP, PCP_5 + IP, IP + bytes(43)),
        (PRIORITY + IP, PCP_5 + IP, IP + bytes(43)),
        (IP, NO_PCP + IP, IP),
        (PCP_7 + PCP_5 + IP, PCP_7 + PCP_5 + IP, PCP_5 + IP + bytes(39)),
        (PCP_5 + IP + long, PCP_5 + IP + long, IP + long),
        (PCP_5 + longest, PCP_5 + longest, longest))]
    times = [(START, 0), (START, 1), (START, 123456789), (START, 123456789), (START + 1, 999999999), (1, 2)]

    def capture(column, *more):
        return pcap(NANOSECONDS, ETHERNET, *((*time, frame[column], len(frame[column]))
                                             for time, frame in zip(times, frames)), *more)
    said = replay(capture(0, (START, 0, bytes(13), 13)))  # a runt is dropped by the switch, not by the file
    assert said == ("7 frames of in into port north\n  6 frames left at south: out-south.pcap\n"
                    "  6 frames left at east: out-east.pcap\n"), said
    assert left("south") == capture(1)
    assert left("east") == capture(2)


def both_formats_are_read_and_cut_frames_left_out():
    frame = ADDRESSES + PCP_5 + IP + bytes(43)
    came = [(START, 5, frame, len(frame)), (START, 6, frame[:20], len(frame))]
    for capture in pcap(MICROSECONDS, ETHERNET, *came), pcapng(*came):
        said = replay(capture)
        assert said.startswith("2 frames of in into port north; 1 were left out, the capture cut them short\n"), said
        assert left("south") == pcap(NANOSECONDS, ETHERNET, (START, 5000, frame, len(frame)))


def what_cannot_be_read_or_written_is_told():
    one = (START, 0, ADDRESSES + PCP_5 + IP + bytes(43), 64)
    good = pcap(MICROSECONDS, ETHERNET, one)
    os.symlink("/dev/full", "full-south.pcap")
    for expected, capture, more in (
            ("the SDK has no port 0x00000009", good, {"port": 9, "status": 2}),
            ("read capture file in: its link type is RAW, expected Ethernet\n", pcap(MICROSECONDS, RAW_IP, one), {}),
            ("write capture file no/out-south.pcap: No such file or directory\n", good, {"out": "no/out"}),
            ("write capture file full-south.pcap: the disk is full or failed\n", good, {"out": "full"}),
            ("read capture file in: truncated", good + bytes(3), {}),
            ("\n  1 frames of in into port north\n  1 frames left at south: out-south.pcap\n", good + bytes(3), {}),
            ("write capture file out-south.pcap: it is the one that is read\n", good, {"name": "out-south.pcap"})):
        said = replay(capture, **{"status": 1, **more})
        assert expected in said, said
    assert left("south") == good


HOST = str(pathlib.Path(sys.argv[1]).resolve())
with tempfile.TemporaryDirectory() as work:
    os.chdir(work)
    every_frame_leaves_as_it_must()
    both_formats_are_read_and_cut_frames_left_out()
    what_cannot_be_read_or_written_is_told()
