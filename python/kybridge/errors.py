"""What can go wrong. Every exception of this package is an Error."""

from __future__ import annotations

from typing import Sequence


class Error(Exception):
    """Something did not do what was asked for."""


class HostError(Error):
    """kybridge-host cannot be started, ended by itself, or ended with memory left over."""


class WrongCommand(Error):
    """A command or a frame that cannot be carried out. Nothing was done."""

    def __init__(self, text: str, expected: str) -> None:
        super().__init__(text if not expected or expected in text else f"{text}; expected {expected}")
        self.text = text  #: what is wrong
        self.expected = expected  #: what would be right; empty where `text` says it


class Refused(Error):
    """The module answered a command with another status than was expected."""

    def __init__(self, command: str, status: int, name: str | None, expected: str, errors: Sequence[str]) -> None:
        answered = f"{status} {name}" if name else str(status)
        super().__init__("\n  ".join([f"{command}: answered {answered}, expected {expected}", *errors]))
        self.command = command  #: as a script would say it
        self.status = status  #: the status that was answered, 22
        self.name = name  #: its name, "ENTRY_ALREADY_EXISTS"; None when no status has this number
        self.expected = expected  #: "0 SUCCESS"
        self.errors = list(errors)  #: the module's own error lines


class Failed(Error, AssertionError):
    """A command that judges found against: database and hardware disagree, the state is another one, a frame left
    elsewhere."""


class Misuse(Error):
    """The module called the SDK in a way that a real one takes for a bug."""
