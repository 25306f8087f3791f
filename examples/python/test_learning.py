"""Learning: a bridge finds out where stations are, or floods everything when it is not to learn."""

import pytest
from scapy.layers.l2 import Dot1Q, Ether

HERE, THERE = "02:00:00:00:00:0a", "02:00:00:00:00:0b"


def frame(source, destination):
    return Ether(src=source, dst=destination) / Dot1Q(vlan=100) / (b"x" * 46)


@pytest.fixture
def three_ports(switch):
    bridge = switch.bridge("red", learning="auto")
    ports = [switch.port(name) for name in ("one", "two", "three")]
    for port in ports:
        bridge.attach(port, vlan=100)
    return ports


def test_a_station_that_was_heard_gets_its_frames_alone(switch, three_ports):
    one, two, three = three_ports
    assert switch.send(one, frame(HERE, THERE)).ports == {two, three}
    assert switch.send(two, frame(THERE, HERE)).ports == {one}
    assert switch.send(one, frame(HERE, THERE)).ports == {two}


def test_a_station_that_moves_is_followed(switch, three_ports):
    one, two, three = three_ports
    switch.send(two, frame(THERE, HERE))
    switch.send(three, frame(THERE, HERE))
    assert switch.send(one, frame(HERE, THERE)).ports == {three}


def test_nothing_is_learned_where_learning_is_off(switch, three_ports):
    one, two, three = three_ports
    switch.bridges["red"].learning("off")
    switch.send(two, frame(THERE, HERE))
    assert switch.send(one, frame(HERE, THERE)).ports == {two, three}
    assert switch.show("fdb") == []


def test_stations_of_a_port_that_goes_down_are_forgotten(switch, three_ports):
    one, two, three = three_ports
    switch.send(two, frame(THERE, HERE))
    two.set(link="down")
    sent = switch.send(one, frame(HERE, THERE))
    assert sent.ports == {three} and sent.not_sent == {two: "link down"}
