"""For pytest: a fresh switch for each test, and what it went through where a test fails."""

from __future__ import annotations

from typing import Any, Generator, Iterator

import pytest

from .errors import Error
from .switch import Switch

_switch_of_test = pytest.StashKey[Switch]()


def pytest_addoption(parser: pytest.Parser) -> None:
    group = parser.getgroup("kybridge", "the bridge module of a switch")
    group.addoption("--kybridge-host", metavar="FILE", help="the program kybridge-host; else $KYBRIDGE_HOST, or the PATH")
    group.addoption("--kybridge-module", metavar="FILE",
                    help="the module; else $KYBRIDGE_MODULE, or the one that belongs to the program")


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line("markers", "switch(bridges=64, virtual_ports=512, mode='802.1D', verbosity=3, start=True): "
                                       "how the switch of this test is started; arguments of kybridge.Switch")


@pytest.fixture
def switch(request: pytest.FixtureRequest) -> Iterator[Switch]:
    """A switch of the test's own, started, with no ports yet."""
    marker = request.node.get_closest_marker("switch")
    arguments: dict[str, Any] = {"host": request.config.getoption("--kybridge-host"),
                                 "module": request.config.getoption("--kybridge-module")}
    if marker is not None:
        arguments.update(marker.kwargs)
    with Switch(**arguments) as switch:
        request.node.stash[_switch_of_test] = switch
        yield switch


@pytest.hookimpl(hookwrapper=True)  # type: ignore[misc]
def pytest_runtest_makereport(item: pytest.Item) -> Generator[None, Any, None]:
    outcome = yield
    report = outcome.get_result()
    switch = item.stash.get(_switch_of_test, None)
    if switch is None or report.when != "call" or not report.failed:
        return
    report.sections.append(("kybridge: the test as a script for kybridge-host", switch.script))
    if switch.last_sent is not None:
        report.sections.append(("kybridge: the last frame", switch.last_sent.trace))
    try:
        state = [str(screen) for screen in switch.do("show everything").screens if screen]
        report.sections.append(("kybridge: the state", "\n\n".join(state)))
    except Error as error:
        report.sections.append(("kybridge: the state", f"not to be had: {error}"))
