"""The protocol itself, spoken by hand."""

import json
import os
import pathlib
import re
import subprocess

HOST = os.environ["KYBRIDGE_HOST"]
DOCUMENT = pathlib.Path(__file__).parents[2] / "docs" / "protocol.md"


def serve(*lines, options=(), status=0):
    """What the host answers to lines, each an object or bytes; it must end with this status."""
    sent = b"".join((line if isinstance(line, bytes) else json.dumps(line).encode()) + b"\n" for line in lines)
    done = subprocess.run([HOST, "--serve", *options], input=sent, capture_output=True, timeout=60, check=False)
    assert done.returncode == status, done.stderr
    return [json.loads(line) for line in done.stdout.splitlines()]


def test_the_document_shows_what_happens():
    requests, answers = [], []
    for block in re.findall(r"^```json\n(.*?)^```", DOCUMENT.read_text(), re.MULTILINE | re.DOTALL):
        for line in block.splitlines():
            (requests if line.startswith("> ") else answers).append(line[2:])
    assert len(requests) == len(answers) > 10
    for request, expected, answer in zip(requests, answers, serve(*(line.encode() for line in requests))):
        whole = ", ..." not in expected
        expected = json.loads(expected.replace(", ...", ""))
        shown = answer if whole else {member: answer.get(member) for member in expected}
        assert shown == expected, request


GARBAGE = [
    b"", b"nope", b"[1]", b"{", b'{"do": "stop"} x', b"\xff\xfe", b'{"do": "\xc3"}', b"\0", b"[" * 100000, b'"do"',
    b"null", b"1e999", b'{"do": ' * 50000, {}, {"do": "say x", "send": []}, {"id": 1}, {"hello": 2}, {"hello": "1"},
    {"do": ""}, {"do": []}, {"do": 1}, {"do": ["say", 1]}, {"do": None}, {"do": ["say", "a\nb"]}, {"do": "say", "od": 1},
    {"do": "say", "trace": True}, {"do": "say", "id": 1.5}, {"do": "say", "id": {}}, {"send": {}}, {"send": [1]},
    {"send": [{"port": 1}]}, {"send": [{"port": 1, "frame": "f"}]}, {"send": [{"port": 1, "frame": ""}]},
    {"send": [{"port": 1, "frame": "0g"}]}, {"send": [{"port": -1, "frame": "00"}]},
    {"send": [{"port": 1 << 32, "frame": "00"}]}, {"send": [{"port": 1, "frame": "00", "x": 1}]},
    {"send": [], "trace": 1}, {"send": [{"port": 1, "frame": "00"}] * 10001},
]
WRONG_COMMANDS = ["bogus", 'say "', "say \1", "frame nobody", "vport add red", "frame 0x10001 vlan 5000"]


def test_what_cannot_be_carried_out_is_told_and_changes_nothing():
    first = [{"do": "start"}, {"do": "port announce 0x10001 as north"}, {"do": "remember before"}]
    last = [{"do": "same-as before"}, {"do": "show counters"}]
    answers = serve(*first, *GARBAGE, *({"do": line} for line in WRONG_COMMANDS),
                    {"send": [{"port": "north", "frame": "00"}, {"port": "nort", "frame": "00"}]}, *last)
    assert all(answer["ok"] for answer in answers[:3] + answers[-2:]), answers[-2]
    assert answers[-1]["screens"][0]["rows"] == []
    refused = answers[3:-2]
    assert [answer["error"]["kind"] for answer in refused] == ["request"] * len(GARBAGE) + ["command"] * 7
    for line, answer in zip(GARBAGE, refused):
        assert answer["error"]["expected"] and len(answer["error"]["text"]) < 200, (line, answer)


def test_requests_at_the_limits_are_taken():
    frames = [{"port": 1, "frame": "ff" * 800}] * 10000
    line = json.dumps({"send": frames, "trace": False}).encode()
    full = line + b" " * ((16 << 20) - len(line))
    assert len(full) == 16 << 20
    sent, last, too_long = serve(full, b'{"do": "say the end"}', full + b" ", b'{"do": "say not heard"}')
    assert sent["ok"] and len(sent["frames"]) == 10000 and sent["frames"][9999]["dropped"] == "unknown port"
    assert last["did"] == "the end" and too_long["error"]["expected"] == "at most 16777216 bytes"


def test_ids_come_back_in_order():
    ids = [1, -5, "", "x\U0001f600\n", 1 << 63]
    assert [answer["id"] for answer in serve(*({"do": "say x", "id": id} for id in ids), b'{"id": 7, "do": 1}')] == [*ids, 7]


def test_a_command_brings_log_screens_and_frames():
    switch = [{"do": line} for line in ("start", "port announce 0x10001 as north", "port announce 0x10002",
                                        "bridge create as red", "vport add red north vlan 100 tagged",
                                        "vport add red 0x10002 vlan 100 untagged", "verbosity trace")]
    *_, deleted, everything, frame, judged, called = serve(
        *switch, {"do": "vport delete-port north"}, {"do": "show everything"}, {"do": "frame 0x10002 size 9999"},
        {"do": "expect frame north untagged"}, {"do": "call ky_bridge_mode_get"})
    assert {"severity": "trace", "module": "BRIDGE"}.items() <= deleted["log"][0].items()
    assert [screen["title"] for screen in everything["screens"]][:2] == ["bridges", "virtual ports"]
    assert frame["frames"][0]["dropped"] == "oversized" and frame["frames"][0]["trace"] == frame["did"]
    assert judged["error"]["kind"] == "failed" and "nowhere" in judged["error"]["text"]
    assert called["did"] == "ky_bridge_mode_get answered 0 SUCCESS; mode_p: 1"


def test_the_end(tmp_path):
    # Scripts run first, and only answers are on standard output; what is quit is over.
    script = tmp_path / "first.kyb"
    script.write_text("start\nsay not heard\nport announce 0x10001 as north\n")
    quitted, = serve({"do": "quit"}, {"do": "say x"}, options=[script])
    assert quitted["ok"]
    assert serve({"do": "port set north pvid 5"}, options=[script])[0]["ok"]
    script.write_text("start\nbridge destroy 7\n")
    assert serve({"do": "say x"}, options=[script], status=1) == []
    for options in (["-"], ["--log", "-"], ["--attach", "north=lo"]):
        serve(options=options, status=2)
    # The log goes to a file as well.
    log = tmp_path / "log"
    assert len(serve({"do": "start"}, options=["--log", log])[0]["log"]) == 1
    assert log.read_text() == "BRIDGE notice: SDK initiates in 802.1D mode\n"


def test_an_answer_that_cannot_be_written_ends_the_host():
    with open("/dev/full", "w", encoding="ascii") as full:
        done = subprocess.run([HOST, "--serve"], input=b'{"hello": 1}\n', stdout=full, stderr=subprocess.PIPE, timeout=60,
                              check=False)
    assert done.returncode == 2 and b"standard output: No space left on device" in done.stderr
