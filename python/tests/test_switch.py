"""The package: what a test gets to see of a switch, and what goes wrong with one."""

import subprocess
import sys

import pytest
from scapy.layers.inet import IP, UDP
from scapy.layers.l2 import Dot1Q, Ether

import kybridge

BROADCAST = b"\xff" * 6 + b"\x02\0\0\0\0\x0a"


@pytest.fixture
def pair(switch):
    north, south = switch.port("north"), switch.port("south")
    red = switch.bridge("red")
    red.attach(north, vlan=100)
    red.attach(south, vlan=100, untagged=True)
    return north, south


def test_packets_compare_as_on_the_wire(switch, pair):
    north, south = pair
    written = Ether(dst="ff:ff:ff:ff:ff:ff", src="02:00:00:00:00:0a") / IP() / UDP(dport=7)
    sent = switch.send(north, Ether(dst="ff:ff:ff:ff:ff:ff", src="02:00:00:00:00:0a") / Dot1Q(vlan=100) / IP() / UDP(dport=7))
    left = sent[south].packet
    assert left == written and written == left and not left != written
    assert left == bytes(written) + b"\0" and left != bytes(written) + b"\1" and left != "text"
    assert left != Ether(dst="ff:ff:ff:ff:ff:ff", src="02:00:00:00:00:0a") / IP() / UDP(dport=8)
    assert Ether in left and left[UDP].dport == 7 and isinstance(left, Ether)


def test_a_frame_tells_where_it_left_and_why_not(switch, pair):
    north, south = pair
    sent = switch.send(north, BROADCAST + bytes.fromhex("8100a064 0800") + bytes(50))
    assert (south in sent, north in sent, len(sent), [left.port for left in sent]) == (True, False, 1, [south])
    assert (sent[south].vlan, sent[south].pcp) == (None, None)
    assert switch.last_sent is sent and str(sent) == sent.trace
    with pytest.raises(KeyError, match="not meant for this port"):
        sent[north]
    other_way = switch.send_many(south, [bytearray(BROADCAST + b"\x81\0\xa0\x64\x08\0"), memoryview(BROADCAST)], trace=True)
    assert (other_way[0][north].vlan, other_way[0][north].pcp, other_way[0][north].frame[:12]) == (100, 5, BROADCAST)
    assert other_way[1].dropped == "runt" and not other_way[1] and "runt" in repr(other_way[1])
    for frame in (b"", 60, None):
        with pytest.raises((kybridge.WrongCommand, TypeError)):
            switch.send(north, frame)


def test_more_frames_than_a_request_holds(switch, pair):
    north, south = pair
    frames = [BROADCAST + b"\x81\0\0\x64\x08\0" + number.to_bytes(2, "big") + bytes(size)
              for number, size in enumerate([0] * 10500 + [9000] * 1500)]
    sent = switch.send_many(north, iter(frames))
    assert [one[south].frame[14:16] for one in sent] == [frame[18:20] for frame in frames]
    assert switch.send_many(north, []) == []


def test_ports_and_bridges(switch, pair):
    north, south = pair
    assert (north.number, south.number, switch.port("far", 0x20001).number, switch.port("next").number) == (
        0x10001, 0x10002, 0x20001, 0x10003)
    with pytest.raises(ValueError, match="north already"):
        switch.port("north")
    with pytest.raises(ValueError, match="0x10002 already"):
        switch.port("other", 0x10002)
    with pytest.raises(ValueError, match="red already"):
        switch.bridge("red")
    with pytest.raises(kybridge.WrongCommand, match="'two words' cannot be a name"):
        switch.port("two words")
    switch.port("odd", swid=3, kind="tca", router=True, lag_member=True, announce=False)
    row = next(row for row in switch.show("ports") if row["PORT"] == "odd")
    assert (row["SWID"], row["KIND"], row["IN THE MODULE"]) == (3, "tca, router, LAG member", None)
    north.set(pvid=7, rstp="learning", link="down", router=True, lag=True)
    north.set(router=False, pvid="none", link="up")
    assert next(row for row in switch.show("ports") if row["PORT"] == "north")["KIND"] == "network, LAG member"
    north.set(lag=False)
    internal = switch.bridge("own", internal=True, learning="control")
    internal.attach(north, vlan=5)
    switch.bridges["red"].bind("egress")
    assert switch.show("groups")[0]["BOUND FOR"] == "egress"
    assert [row["LEARNING"] for row in switch.show("bridges")] == ["off", "control"]
    switch.bridges["red"].unbind("egress")
    internal.detach(north, vlan=5)
    internal.destroy()
    south.clear(release=True)
    south.restore()
    assert [row["PORT"] for row in switch.bridges["red"].vports] == ["north"]


def test_what_is_refused_is_an_exception(switch, pair):
    north, south = pair
    with pytest.raises(kybridge.Refused) as refused:
        switch.bridges["red"].attach(south, vlan=100)
    assert (refused.value.status, refused.value.name, refused.value.expected) == (22, "ENTRY_ALREADY_EXISTS", "0 SUCCESS")
    assert refused.value.errors[0] == "BRIDGE error: Port(0x00010002), vlan(100) already added to a bridge."
    with pytest.raises(kybridge.WrongCommand) as wrong:
        switch.do("vport", "add", "red")
    assert wrong.value.expected == "vport add BRIDGE PORT vlan VLAN TAGGING [internal]"
    before = switch.remember()
    switch.do("vlan join north 300 tagged")
    with pytest.raises(kybridge.Failed, match=r"\+ hardware: .*300"):
        switch.same_as(before)
    with pytest.raises(AssertionError, match="do not agree"):
        switch.do("vlan leave north 100")
        switch.verify()
    switch.do("vlan join north 100 tagged")
    assert switch.explain(south, 100)[0].title == "virtual port south VLAN 100, untagged"


def test_the_script_repeats_what_was_done(switch, pair, tmp_path):
    north, south = pair
    with pytest.raises(kybridge.Refused):
        switch.bridges["red"].attach(south, vlan=100)
    with pytest.raises(kybridge.WrongCommand):
        switch.do("bogus")
    switch.do("say", "two  words", "# no comment")
    switch.send(north, BROADCAST + b"\x81\0\0\x64\x08\0")
    script = tmp_path / "repeat.kyb"
    script.write_text(switch.script + "expect frame south untagged\n")
    done = subprocess.run([switch._client.command[0], script], capture_output=True, text=True, timeout=60, check=False)
    assert done.returncode == 0, done.stderr
    assert "two  words # no comment" in done.stdout and switch.last_sent.trace in done.stdout


def test_a_host_that_is_none(tmp_path):
    for host, text in (("/no/such", "/no/such cannot be started: No such file"), (["cat"], "'--serve'"),
                       ([sys.executable, "-c", "input(); print(1)"], "no answer of kybridge-host"), (["false"], "ended with status 1"),
                       ([sys.executable, "-c", "input(); print('{\"ok\": false, \"error\": {\"text\": \"old\", \"expected\": \"0\"}}')"],
                        "old; expected 0")):
        with pytest.raises(kybridge.HostError, match=text):
            kybridge.Switch(host=host)
    with pytest.raises(kybridge.HostError, match="cannot be loaded"):
        kybridge.Switch(module=tmp_path / "missing.so")
    with pytest.raises(kybridge.Refused, match="PARAM"):
        kybridge.Switch(bridges=0)


def test_the_end_of_a_switch():
    with pytest.raises(ZeroDivisionError):
        with kybridge.Switch():
            raise ZeroDivisionError
    with kybridge.Switch(verbosity=6, start=False) as switch:
        assert any(line.severity == "trace" for line in switch.do("start").log)
        switch.do("quit")
        with pytest.raises(kybridge.HostError, match="has ended with status 0"):
            switch.verify()
    with pytest.raises(kybridge.HostError, match="is closed"):
        switch.verify()
    switch = kybridge.Switch()
    switch.do("fail cl_malloc next with 5")
    switch.close()
    switch.close()
