"""A kybridge-host process, and the protocol that it speaks (docs/protocol.md of kybridge)."""

from __future__ import annotations

import contextlib
import json
import os
import subprocess
import tempfile
from dataclasses import dataclass, field
from typing import Any, Iterable, Mapping, Sequence

from .errors import Failed, HostError, Misuse, Refused, WrongCommand

PROTOCOL = 1
"""The version of the protocol that this package speaks."""


@dataclass(frozen=True)
class LogLine:
    """A line that the module logged."""

    severity: str  #: "error", "notice", "debug" or "trace"
    module: str  #: who logged it, "BRIDGE"
    message: str

    def __str__(self) -> str:
        return f"{self.module} {self.severity}: {self.message}"


class Screen(list[dict[str, Any]]):
    """The rows of a screen: dicts by heading; a cell is a string, in a column of numbers an int, None if empty."""

    def __init__(self, title: str, rows: Iterable[dict[str, Any]] = (), note: str = "") -> None:
        super().__init__(rows)
        self.title = title  #: what the rows are, "virtual ports"
        self.note = note  #: what is true of all of them; mostly empty

    def __str__(self) -> str:
        title = f"{self.title} ({self.note})" if self.note else self.title
        if not self:
            return f"{title}: none"
        lines = [list(self[0]), *(["-" if cell is None else str(cell) for cell in row.values()] for row in self)]
        widths = [max(map(len, column)) for column in zip(*lines)]
        texts = ["  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in lines]
        return "\n  ".join([title, *texts])


@dataclass(frozen=True)
class Answer:
    """What a command was answered."""

    status: int  #: by the module: 0, or what was expected
    name: str | None  #: the status's name, "SUCCESS"
    did: str  #: what was done, in words
    log: list[LogLine] = field(default_factory=list)  #: what the module logged
    screens: list[Screen] = field(default_factory=list)  #: what the command shows
    frames: list[dict[str, Any]] = field(default_factory=list)  #: of the frame that it sent, as the protocol has it


def _log_lines(answer: Mapping[str, Any]) -> list[LogLine]:
    return [LogLine(line["severity"], line["module"], line["message"]) for line in answer.get("log", ())]


def command_text(command: str | Sequence[str]) -> str:
    """The line of a script that says a command."""
    if isinstance(command, str):
        return command
    return " ".join(f'"{word}"' if word == "" or word[0] == "#" or " " in word or "\t" in word else word
                    for word in command)


class Client:
    """A process of kybridge-host.

    :param host: the program, or a command with arguments; None: $KYBRIDGE_HOST, or kybridge-host in the PATH.
        Anything that speaks the protocol will do, a host for another SDK among them.
    :param module: the module's file; None: $KYBRIDGE_MODULE, or the one that belongs to the program
    :param verbosity: what the module logs, 0 (nothing) to 6 (function traces); None: 3, notices
    :raises HostError: the program cannot be started, or does not speak this version of the protocol
    """

    def __init__(self, host: str | os.PathLike[str] | Sequence[str] | None = None,
                 module: str | os.PathLike[str] | None = None, verbosity: int | None = None) -> None:
        program = host or os.environ.get("KYBRIDGE_HOST") or "kybridge-host"
        module = module or os.environ.get("KYBRIDGE_MODULE")
        command = [os.fspath(program)] if isinstance(program, (str, os.PathLike)) else list(program)
        command.append("--serve")
        if module is not None:
            command += ["--module", os.fspath(module)]
        if verbosity is not None:
            command += ["--verbosity", str(verbosity)]
        self.command = command  #: with which the process was started
        self._errors = tempfile.TemporaryFile()
        try:
            self._process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                             stderr=self._errors)
        except OSError as error:
            self._errors.close()
            raise HostError(f"{command[0]} cannot be started: {error.strerror}; "
                            "install kybridge-host, or name the program in $KYBRIDGE_HOST") from error
        self._closed = False
        try:
            self.hello: dict[str, Any] = self.ask({"hello": PROTOCOL})
            """Who answers: `program`, `version`, `module`, and `limits` of requests."""
            if not self.hello["ok"]:
                raise HostError(f"{command[0]}: {self.hello['error']['text']}; expected {self.hello['error']['expected']}")
        except HostError:
            self.abandon()
            raise

    def ask(self, request: Mapping[str, Any]) -> dict[str, Any]:
        """Sends one request and returns its answer, refused or not.

        :raises HostError: the process has ended
        """
        if self._closed:
            raise HostError("the switch is closed")
        assert self._process.stdin is not None and self._process.stdout is not None
        try:
            self._process.stdin.write(json.dumps(request).encode() + b"\n")
            self._process.stdin.flush()
            line = self._process.stdout.readline()
        except BrokenPipeError:
            line = b""
        if not line.endswith(b"\n"):
            raise HostError(f"kybridge-host has ended with status {self._process.wait()}{self._told()}")
        try:
            answer = json.loads(line)
        except ValueError as error:
            raise HostError(f"this is no answer of kybridge-host: {line[:80]!r}") from error
        if not isinstance(answer, dict) or "ok" not in answer:
            raise HostError(f"this is no answer of kybridge-host: {line[:80]!r}")
        return answer

    def do(self, command: str | Sequence[str]) -> Answer:
        """Carries out one command: a line as in a script, or its words one by one.

        :raises WrongCommand: it is no command, or cannot be carried out now; nothing was done
        :raises Refused: the module answered with another status than expected
        :raises Failed: what the command checks does not hold
        :raises Misuse: the module misused the SDK
        """
        answer = self.ask({"do": command if isinstance(command, str) else list(command)})
        log = _log_lines(answer)
        if not answer["ok"]:
            error = answer["error"]
            text = command_text(command)
            if error["kind"] == "status":
                raise Refused(text, answer["status"]["number"], answer["status"]["name"], error["expected"],
                              [str(line) for line in log if line.severity == "error"])
            if error["kind"] == "failed":
                raise Failed(f"{text}: {error['text']}")
            if error["kind"] == "misuse":
                raise Misuse(f"{text}: {error['text']}")
            raise WrongCommand(error["text"], error["expected"])
        return Answer(status=answer["status"]["number"], name=answer["status"]["name"], did=answer["did"], log=log,
                      screens=[Screen(screen["title"], screen["rows"], screen.get("note", ""))
                               for screen in answer["screens"]],
                      frames=answer.get("frames", []))

    def send(self, frames: Sequence[tuple[str, bytes]], trace: bool) -> list[dict[str, Any]]:
        """Sends frames into ports, (port, bytes) each, as many as one request holds.

        :param trace: whether to bring each frame's way in words
        :return: what became of each, as the protocol has it
        :raises WrongCommand: a port that there is not; none was sent
        """
        answer = self.ask({"send": [{"port": port, "frame": frame.hex()} for port, frame in frames], "trace": trace})
        if not answer["ok"]:
            raise WrongCommand(answer["error"]["text"], answer["error"]["expected"])
        frames_sent: list[dict[str, Any]] = answer["frames"]
        return frames_sent

    def close(self) -> None:
        """Stops the module and ends the process.

        :raises HostError: it did not end well, for example with memory left over
        """
        if self._closed:
            return
        self._closed = True
        assert self._process.stdin is not None and self._process.stdout is not None
        try:
            self._process.stdin.close()
        except BrokenPipeError:
            pass
        status = self._process.wait()
        self._process.stdout.close()
        told = self._told()
        self._errors.close()
        if status != 0:
            raise HostError(f"kybridge-host ended with status {status}{told}")

    def abandon(self) -> None:
        """Ends the process, well or not: something else went wrong before, and that is what matters."""
        with contextlib.suppress(HostError):
            self.close()

    def _told(self) -> str:
        """What the process wrote to standard error."""
        self._errors.seek(0)
        told = self._errors.read().decode(errors="replace").strip()
        return f":\n{told}" if told else ""
