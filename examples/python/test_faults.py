"""Faults: whatever call into the hardware is refused, the module is left as it was before."""

import pytest

import kybridge


def calls_of(operation, switch):
    """How many calls into the SDK an operation makes."""
    before = len(switch.show("journal"))
    operation()
    return len(switch.show("journal")) - before


@pytest.fixture
def red(switch):
    red = switch.bridge("red")
    red.attach(switch.port("north"), vlan=100)
    return red


def test_an_attachment_is_done_whole_or_not_at_all(switch, red):
    south = switch.port("south")
    calls = calls_of(lambda: red.attach(south, vlan=100), switch)
    red.detach(south, vlan=100)
    refused = 0
    for nth in range(1, calls + 1):
        with switch.unchanged():
            switch.fail("any", "NO_RESOURCES", nth=nth)
            try:
                red.attach(south, vlan=100)
                red.detach(south, vlan=100)
            except kybridge.Refused:
                refused += 1
            switch.clear_faults()
        switch.verify()
    assert refused > calls / 2


def test_a_refusal_names_the_call_that_failed(switch, red):
    switch.fail("vlan_port_multi_vlans_set", "NO_RESOURCES")
    with pytest.raises(kybridge.Refused) as refused:
        red.attach(switch.port("south"), vlan=100)
    assert (refused.value.status, refused.value.name) == (5, "NO_RESOURCES")
    assert "vlan" in refused.value.errors[0].lower()
