"""The plugin of pytest: a switch for each test, and what a failing test shows."""

pytest_plugins = ["pytester"]

TESTS = """
import pytest
from kybridge import Switch

FRAME = bytes.fromhex("ffffffffffff02000000000a810000640800")

def test_fails(switch):
    red = switch.bridge("red")
    for name in ("north", "south"):
        red.attach(switch.port(name), vlan=100)
    assert switch.send(switch.ports["north"], FRAME).ports == set()

@pytest.mark.switch(bridges=1, verbosity=0)
def test_has_a_switch_of_its_own(switch):
    assert switch.show("bridges") == [] and switch.ports == {}
    switch.bridge("red")
    with pytest.raises(Exception, match="NO_RESOURCES"):
        switch.bridge("blue")

def test_fails_after_its_switch_has_ended(switch):
    switch.close()
    assert False

def test_needs_none():
    pass
"""


def test_a_failing_test_tells_all(pytester):
    pytester.makepyfile(TESTS)
    result = pytester.runpytest_subprocess("-p", "kybridge.pytest_plugin", "-p", "no:cacheprovider")
    result.assert_outcomes(passed=2, failed=2)
    result.stdout.fnmatch_lines(["*kybridge: the test as a script*", "vport add red south vlan 100 tagged",
                                 "*kybridge: the last frame*", "  > south*", "*kybridge: the state*", "virtual ports*",
                                 "*kybridge: the state*", "not to be had: the switch is closed"])
    result = pytester.runpytest_subprocess("-p", "kybridge.pytest_plugin", "--kybridge-module", "/no/such.so")
    result.stdout.fnmatch_lines(["*the module cannot be loaded: /no/such.so*"])
