#!/usr/bin/env python3
"""How many frames a second go through a switch from Python, and how near that is to the floor: a program that sends
back each request as it came, so that only JSON and pipes are left.

    bench/python_frames.py [HOST]    by default build/host/kybridge-host
"""

import pathlib
import statistics
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "python"))

import kybridge  # noqa: E402: it is found in the source tree

FRAMES = 40000
ROUNDS = 5
TARGET = 20000  # frames a second with send_many

# Answers hello as the host does, and a request to send by its frames, as if each had left where it came in.
FLOOR = """
import json, sys
print(json.dumps({"ok": True, "version": "", "module": "", "limits": {"bytes": 16 << 20, "frames": 10000}}), flush=True)
sys.stdin.readline()
for line in sys.stdin:
    sent = [{"dropped": None, "sent": [one], "not_sent": []} for one in json.loads(line)["send"]]
    print(json.dumps({"ok": True, "frames": sent}), flush=True)
"""


def rates(switch, port, trace):
    """Frames a second, the median of some rounds."""
    frame = bytes.fromhex("ffffffffffff02000000000a810000640800") + bytes(42)
    rounds = []
    for _ in range(ROUNDS):
        begin = time.perf_counter()
        sent = switch.send_many(port, [frame] * FRAMES, trace=trace)
        rounds.append(FRAMES / (time.perf_counter() - begin))
        assert all(sent)
    return statistics.median(rounds)


def main():
    host = sys.argv[1] if len(sys.argv) > 1 else ROOT / "build" / "host" / "kybridge-host"
    floor_switch = kybridge.Switch(host=[sys.executable, "-c", FLOOR], start=False)
    floor = rates(floor_switch, kybridge.Port(floor_switch, "north", None), False)
    with kybridge.Switch(host=host) as switch:
        north, south = switch.port("north"), switch.port("south")
        red = switch.bridge("red", learning="auto")
        for port in (north, south):
            red.attach(port, vlan=100)
        for what, trace in (("send_many", False), ("send_many with traces", True)):
            rate = rates(switch, north, trace)
            print(f"{what:22} {rate:8.0f} frames a second, {rate / floor:.2f} of the floor ({floor:.0f})")
            if not trace and rate < TARGET:
                sys.exit(f"the target is {TARGET} frames a second")


if __name__ == "__main__":
    main()
