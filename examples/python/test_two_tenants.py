"""Two tenants on one switch. Red has VLAN 100, blue has VLAN 200; both reach the uplink with tags, and hosts that know
of no VLAN at a port of their own. Neither hears the other.

Run it with: pytest test_two_tenants.py
"""

import pytest
from scapy.layers.inet import IP, UDP
from scapy.layers.l2 import Dot1Q, Ether

STATION = "02:00:00:00:00:0a"
EVERYBODY = "ff:ff:ff:ff:ff:ff"
UNTAGGED = Ether(src=STATION, dst=EVERYBODY) / IP(dst="10.0.0.255") / UDP(dport=9) / "a word to all"


def tagged(vlan, pcp=0):
    return Ether(src=STATION, dst=EVERYBODY) / Dot1Q(vlan=vlan, prio=pcp) / UNTAGGED.payload


@pytest.fixture
def ports(switch):
    """The ports of both tenants: (red's, blue's, the uplink)."""
    red_host, blue_host = switch.port("red-host", pvid=100), switch.port("blue-host", pvid=200)
    uplink = switch.port("uplink")
    for name, vlan, host in (("red", 100, red_host), ("blue", 200, blue_host)):
        bridge = switch.bridge(name)
        bridge.attach(host, vlan=vlan, untagged=True)
        bridge.attach(uplink, vlan=vlan)
    return red_host, blue_host, uplink


def test_frames_get_the_tag_of_their_tenant(switch, ports):
    red_host, blue_host, uplink = ports
    sent = switch.send(red_host, UNTAGGED)
    assert sent.ports == {uplink}
    assert sent[uplink].packet == tagged(100)
    assert switch.send(blue_host, UNTAGGED)[uplink].packet == tagged(200)


def test_a_tag_chooses_the_tenant_and_goes(switch, ports):
    red_host, blue_host, uplink = ports
    for vlan, host in ((100, red_host), (200, blue_host)):
        sent = switch.send(uplink, tagged(vlan, pcp=5))
        assert sent.ports == {host}
        assert sent[host].packet == UNTAGGED


def test_nobody_gets_into_the_other_tenants_vlan(switch, ports):
    red_host, _, _ = ports
    assert switch.send(red_host, tagged(200)).dropped == "not a member"


def test_a_tenant_that_leaves_takes_nothing_along(switch, ports):
    red_host, blue_host, uplink = ports
    red = switch.bridges["red"]
    red.detach(red_host, vlan=100, untagged=True)
    red.detach(uplink, vlan=100)
    red.destroy()
    assert switch.send(uplink, tagged(100)).dropped == "not a member"
    assert switch.send(uplink, tagged(200)).ports == {blue_host}
    switch.verify()
