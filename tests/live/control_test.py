#!/usr/bin/env python3
"""What clients, disks and readers do to a switch that forwards: they get their due, and it goes on.

    control_test.py HOST [CASE...]
"""
import contextlib
import json
import os
import re
import signal
import socket
import stat
import struct
import subprocess
import sys
import tempfile
import threading
import time

from namespaces_test import main, namespace, ping, run, untagged_bridge


def all_answers(client, lines):
    """Sends lines and no more. @return all that comes back"""
    def send():
        with contextlib.suppress(OSError):  # the session may end before
            client.sendall(lines)
            client.shutdown(socket.SHUT_WR)
    threading.Thread(target=send).start()
    answer = b""
    while part := client.recv(65536):
        answer += part
    return answer


def gone_and_deaf_clients(start):
    """Answers that nobody takes, some longer than any buffer, and lines that never end."""
    switch = start("remember before\n" + untagged_bridge("a", "b") + "".join(
        f"bridge create as b{i}\nvport add b{i} c vlan {200 + i} tagged\n" for i in range(63)))
    for lines in (b"A" * 5000 + b"\n", b"same-as before\n" * 50, b"bogus\n" * 20000):
        with switch.connect() as client, contextlib.suppress(OSError):
            client.sendall(lines)
    with switch.connect() as deaf:
        deaf.settimeout(0.5)
        with contextlib.suppress(OSError):  # until the buffers are full
            while True:
                deaf.sendall(b"show journal\n" * 100)
        assert ping("a", "10.0.0.2") == 3
        assert "verified" in switch("verify")
        switch.stop()


def clients_side_by_side(start):
    """Everyone gets all of their answers, in their order; a line has its limit, and needs no end at the last."""
    switch = start(untagged_bridge("a", "b"))
    answers = {}

    def talk(name):
        with switch.connect() as client:
            answers[name] = all_answers(client, b"".join(b"say %s %d\n" % (name, i) for i in range(5000)))
    talkers = [threading.Thread(target=talk, args=(name,)) for name in (b"one", b"two", b"three")]
    for talker in talkers:
        talker.start()
    for talker in talkers:
        talker.join()
    for name, answer in answers.items():
        assert answer.splitlines() == [b"%s %d" % (name, i) for i in range(5000)], f"{name}: {answer[-100:]}"

    longest = b"say " + b"x" * 4092
    with switch.connect() as client:
        assert all_answers(client, longest + b"\nsay last") == longest[4:] + b"\nlast\n"
    with switch.connect() as client:
        answer = all_answers(client, b"say first\n" + longest + b"x\nsay last\n")
        assert answer.startswith(b"first\n") and b"4096 bytes" in answer and b"last" not in answer, answer


def one_socket_one_host(start):
    """A second host does not take the socket of one that lives, only that of one that died; nobody else gets in."""
    umask = os.umask(0)
    first = start("", "--json")
    os.umask(umask)
    path = f"{first.folder.name}/control"
    assert (mode := stat.S_IMODE(os.stat(path).st_mode)) == 0o600, oct(mode)
    second = run(*first.command, check=False)
    assert second.returncode == 2 and f"{path}: in use" in second.stderr, second.stderr
    first.kill()
    heir = subprocess.Popen(first.command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True)
    while "forwarding" not in heir.stdout.readline():
        assert heir.poll() is None, "the heir ended"
    with first.connect() as client:
        assert all_answers(client, b"say heir") == b"heir\n"
    os.rename(path, path + ".moved")
    with open(path, "w"):  # somebody else's
        heir.terminate()
        heir.communicate(timeout=20)
    assert heir.returncode == 0 and os.path.exists(path), heir.returncode


def output_that_is_lost(start):
    """A full disk and a reader that has gone: frames flow on, the loss is told once and by the exit status."""
    for options, streams, name in ((["--log", "/dev/full"], {}, "/dev/full: No space left on device"),
                                   (["--log", "-"], {"stderr": subprocess.PIPE}, "standard output: Broken pipe")):
        switch = start(untagged_bridge("a", "b"), *options, **streams)
        if streams:
            switch.process.stdout.close()
            run("ip", "-n", namespace("sw"), "link", "set", "pc", "down")  # which is told on standard output
        with switch.connect() as client:
            assert b"done" in all_answers(client, b"bridge destroy 7\n" * 100 + b"say done")
        assert ping("a", "10.0.0.2") == 3
        switch.process.terminate()
        told = (switch.process.stderr or switch.process.stdout).read()
        assert switch.process.wait(20) == 2 and told.count(name) == 1, told
        run("ip", "-n", namespace("sw"), "link", "set", "pc", "up")


def frames_are_not_held_up(start):
    """Long commands, much to answer and much to read beside a ping. What a quiet machine shows is in docs/host.md."""
    members = "".join(f"bridge create as b{i}\n" + "".join(f"vport add b{i} {port} vlan {200 + i} tagged\n"
                      for port in ("a", "b", "c", "d")) for i in range(127))
    share = 20 if os.environ.get("KYBRIDGE_REDUCED_EFFORT") else 1  # of the work, under sanitizers
    replayed = 1_000_000 // share
    with tempfile.TemporaryDirectory() as folder:
        switch = start(untagged_bridge("a", "b", "c", "d") + members, "--control-files", folder)
        with open(f"{folder}/million", "wb") as file:
            frame = b"\xff" * 6 + b"\2\0\0\0\1\1" + b"\x81\0" + struct.pack("!HH", 4000, 0x88B5) + bytes(44)
            file.write(struct.pack("=IHHIIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1) +
                       (struct.pack("=IIII", 1700000000, 0, len(frame), len(frame)) + frame) * replayed)

        def garbage(client):
            all_answers(client, b"".join(b"%050x\n" % i for i in range(20_000 // share)))

        def slow_reader(client):
            client.sendall(b"show rules\n" * 20)
            for _ in range(50):
                client.recv(10000)
                time.sleep(0.02)

        def journal(client):
            assert b"call" in all_answers(client, b"show journal\nshow everything\nverify\n" * (30 // share))

        def replay(client):
            assert b"%d frames" % replayed in all_answers(client, b"replay million into a out left")
        for disturb in (garbage, slow_reader, journal, replay):
            pinging = subprocess.Popen(["ip", "netns", "exec", namespace("a"), "ping", "-q", "-i", "0.002",
                                        "10.0.0.2"], stdout=subprocess.PIPE, text=True)
            try:
                with switch.connect() as client:
                    disturb(client)
            finally:
                pinging.send_signal(signal.SIGINT)
                report = pinging.communicate()[0]
            sent, answered = (int(number) for number in re.findall(r"(\d+) packets transmitted, (\d+) rec", report)[0])
            longest = float(report.split("/")[-2])  # rtt min/avg/max/mdev, in milliseconds
            print(f"        beside {disturb.__name__}: {answered} pings, the longest {longest} ms")
            assert answered >= max(1, sent - 3) and longest < 300, report  # the last ones may still be under way


def needs_little_and_gives_little(start):
    """CAP_NET_RAW alone, as another user, and for clients the files of one folder, if of any."""
    with tempfile.TemporaryDirectory() as top:
        os.chmod(top, 0o755)
        folder, outside = f"{top}/in", f"{top}/out"
        for path in (folder, outside):
            os.mkdir(path)
            os.chmod(path, 0o777)
        with open(f"{folder}/one", "wb") as file:
            file.write(struct.pack("=IHHIIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1) +
                       struct.pack("=IIII", 1700000000, 0, 60, 60) + b"\xff" * 6 + bytes(54))
        os.symlink(f"{outside}/linked", f"{folder}/link-b.pcap")
        os.mkfifo(f"{folder}/pipe-b.pcap")
        for options in ([], ["--user", "nobody", "--control-files", folder]):
            switch = start(untagged_bridge("a", "b"), *options)
            with open(f"/proc/{switch.process.pid}/status") as file:
                status = dict(line.rstrip("\n").split(":\t") for line in file)
            rights = [int(status[name], 16) for name in ("CapPrm", "CapEff", "CapInh", "CapBnd", "CapAmb")]
            assert rights == [1 << 13, 1 << 13, 0, 0, 0], status
            assert (status["Uid"].split("\t")[0] == "0") == (not options), status
            assert ping("a", "10.0.0.2") == 3
            wrong = [("one", f"{outside}/x"), ("one", "../out/x"), ("one", "link"), ("one", "pipe"),
                     (f"{folder}/one", "x"), ("pipe-b.pcap", "x"), ("..", "x")] + [("one", "x")] * (not options)
            for source, target in wrong:
                with switch.connect() as client:
                    answer = all_answers(client, f"replay {source} into a out {target}".encode())
                assert b"cannot " in answer, (source, target, answer)
            assert os.listdir(outside) == [] and sorted(os.listdir(folder)) == ["link-b.pcap", "one", "pipe-b.pcap"]
            if options:
                switch("replay one into a out x")
                assert "x-b.pcap" in os.listdir(folder)
            switch.stop()


def programs_beside_people(start):
    """A client that begins with a brace is answered in JSON, while another gets text; neither makes files."""
    switch = start(untagged_bridge("a", "b"))
    frame = "ffffffffffff02000000000a0800" + "00" * 46
    requests = [{"hello": 1}, {"do": "show vports", "id": 7}, {"do": "bogus"}, {"do": "draw x.dot"},
                {"send": [{"port": "a", "frame": frame}] * 120}]
    with switch.connect() as program, switch.connect() as person:
        answers = all_answers(program, "".join(json.dumps(request) + "\n" for request in requests).encode())
        hello, vports, bogus, drawing, sent = map(json.loads, answers.splitlines())
        assert hello["protocol"] == 1 and vports["id"] == 7, answers
        assert [row["PORT"] for row in vports["screens"][0]["rows"]] == ["a", "b"], vports
        assert bogus["error"]["kind"] == "command" and drawing["error"]["kind"] == "failed", answers
        assert [one["sent"] for one in sent["frames"]] == [[{"port": "b", "frame": frame}]] * 120, sent
        # What one has sent is not the other's to look at.
        said, *refused = all_answers(person, b"say hello\nexpect frame b untagged\n").splitlines()
        assert said == b"hello" and refused and b"no frame was sent yet" in refused[0], refused


if __name__ == "__main__":
    sys.exit(main([programs_beside_people, gone_and_deaf_clients, clients_side_by_side, one_socket_one_host, output_that_is_lost,
                   frames_are_not_held_up, needs_little_and_gives_little]))
