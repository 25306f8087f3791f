#!/usr/bin/env python3
"""The whole live switch under everything at once: control bytes, frames, and interfaces that come and go.

    fuzz/live.py HOST SECONDS [SEED]

HOST is built with sanitizers. A seed repeats what is done, though not when the switch takes it. Exits with 77 where
the machine does not allow namespaces.
"""
import collections
import contextlib
import os
import random
import re
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "../tests/live"))
from namespaces_test import NAMES, Network, Station, Switch, namespace, run, untagged_bridge, why_not

BROKEN = re.compile("AddressSanitizer|LeakSanitizer|runtime error:|terminate called")


class Chaos:
    def __init__(self, switch, stations, seed, program):
        self.switch, self.stations = switch, stations
        self.random = random.Random(seed)
        self.clients = []
        self.done = collections.deque(maxlen=100)
        help_text = run(program, "--help").stdout
        self.lines = [line.encode() for line in re.findall("example:  (.*)", help_text) if line != "quit"]

    def line(self):
        """A command, perhaps with something wrong about it."""
        words = self.random.choice(self.lines).replace(b"north", self.random.choice((b"a", b"b", b"c"))).split(b" ")
        for _ in range(self.random.choice((0, 0, 1, 3))):
            words[self.random.randrange(1, len(words) + 1):][:1] = [self.random.choice(
                (self.bytes(4), b"4294967295", b"0", b'"', b"#", self.random.choice(words), b"A" * 5000))]
        return b" ".join(words)

    def bytes(self, most):
        return self.random.randbytes(self.random.randrange(most))

    def talk(self):
        if len(self.clients) < 8 and self.random.random() < 0.3:
            self.clients.append(self.switch.connect())
            self.clients[-1].settimeout(0.05)
        if not self.clients:
            return
        client = self.random.choice(self.clients)
        try:
            if self.random.random() < 0.7:
                text = self.random.choice((b"\n", b"")).join(self.line() for _ in range(self.random.randrange(1, 20)))
                client.sendall(self.random.choice((text + b"\n", text, self.bytes(20000), b"show everything\n" * 50)))
            elif self.random.random() < 0.7:
                client.recv(self.random.choice((1, 100000)))
            else:
                raise ConnectionError
        except TimeoutError:
            pass
        except OSError:
            client.close()
            self.clients.remove(client)

    def send(self):
        station = self.random.choice(self.stations)
        with contextlib.suppress(OSError):  # its interface is down
            station.send(self.random.choice((b"\xff" * 6, bytes((2, 0, 0, 0, 0, 1)), self.random.randbytes(6))),
                         self.bytes(self.random.choice((64, 1500))), self.random.choice((None, 0, 1, 100, 200, 4095)),
                         self.random.randrange(1 << 16), source=self.random.choice((None, self.random.randbytes(6))))

    def flap(self):
        port = self.random.choice(NAMES)
        space, interface = self.random.choice(((namespace("sw"), f"p{port}"), (namespace(port), "eth0")))
        run("ip", "-n", space, "link", "set", interface, self.random.choice(("up", "up", "down")), check=False)

    def act(self):
        action = self.random.choices((self.talk, self.send, self.flap), (10, 30, 1))[0]
        self.done.append(action.__name__)
        action()


def main():
    program, seconds = os.path.abspath(sys.argv[1]), float(sys.argv[2])
    seed = int(sys.argv[3]) if len(sys.argv) > 3 else random.randrange(1 << 32)
    if reason := why_not():
        print(f"skipped: {reason}")
        return 77
    print(f"seed {seed}", flush=True)
    with Network():
        switch = Switch(program, untagged_bridge("a", "b") + "vport add red c vlan 100 tagged\n", errors="replace")
        reader = threading.Thread(target=lambda: switch.output.extend(switch.process.stdout))
        reader.start()
        try:
            chaos = Chaos(switch, [Station(name) for name in NAMES], seed, program)
            end, acts = time.monotonic() + seconds, 0
            while time.monotonic() < end and switch.process.poll() is None:
                chaos.act()
                acts += 1
            with contextlib.suppress(OSError), switch.connect() as client:
                client.sendall(b"say alive\n")
                assert client.recv(100) == b"alive\n"
            switch.process.terminate()
            status = switch.process.wait(60)
        finally:
            switch.kill()
            reader.join()
    faults = [line for line in switch.output if BROKEN.search(line)]
    if status in (0, 1) and not faults:  # 1: what was left over, for example a planned fault
        print(f"{acts} acts, exit status {status}")
        return 0
    print("".join(switch.output[-100:]), f"exit status {status}; the last acts: {list(chaos.done)}", sep="")
    return 1


if __name__ == "__main__":
    sys.exit(main())
