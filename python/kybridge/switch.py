"""A switch: the bridge module over a stand-in for the hardware, in a process of its own."""

from __future__ import annotations

import contextlib
import os
import tempfile
from types import TracebackType
from typing import Iterable, Iterator, Literal, Sequence

from .client import Answer, Client, Screen, command_text
from .errors import Error, Failed, Misuse, Refused, WrongCommand
from .frames import Frame, Sent, frame_bytes

FIRST_PORT = 0x10001
"""The number of the first port that is given none."""

REQUEST_OVERHEAD = 50
"""Bytes that stand around the frames of a request, and around each of them, at most."""


class Port:
    """A logical port. Two are equal when they are of one switch and have one name."""

    def __init__(self, switch: Switch, name: str, number: int | None) -> None:
        self._switch = switch
        self.name = name
        self.number = number  #: None: it was made by a command, not by Switch.port()

    def set(self, *, pvid: int | Literal["none"] | None = None, rstp: str | None = None, link: str | None = None,
            router: bool | None = None, lag: bool | None = None) -> None:
        """Changes the port in the SDK; what is not given stays.

        :param pvid: VLAN of untagged and priority-tagged frames, 1 to 4094; "none": they are dropped
        :param rstp: "discarding", "learning" or "forwarding"
        :param link: "up" or "down"
        :param router: whether it is a router port
        :param lag: whether it is a member of a LAG
        """
        words = ["port", "set", self.name]
        for attribute, value in (("pvid", pvid), ("rstp", rstp), ("link", link)):
            if value is not None:
                words += [attribute, str(value)]
        for attribute, switched in (("router", router), ("lag", lag)):
            if switched is not None:
                words += [attribute, "on" if switched else "off"]
        self._switch.do(*words)

    def announce(self) -> None:
        """Tells the module that the port has entered its switch partition."""
        self._switch.do("port", "announce", self.name)

    def withdraw(self) -> None:
        """Tells the module that the port has left its switch partition."""
        self._switch.do("port", "withdraw", self.name)

    def clear(self, release: bool = False) -> None:
        """Takes the port out of all bridges.

        :param release: whether the module also forgets it
        """
        self._switch.do("port", "clear", self.name, *(["release"] if release else []))

    def restore(self) -> None:
        """Brings a released port back, without its virtual ports."""
        self._switch.do("port", "restore", self.name)

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Port) and self._switch is other._switch and self.name == other.name

    def __hash__(self) -> int:
        return hash(self.name)

    def __repr__(self) -> str:
        return f"<port {self.name}>"


class Bridge:
    """A bridge of the module."""

    def __init__(self, switch: Switch, name: str, internal: bool) -> None:
        self._switch = switch
        self.name = name
        self._internal = ["internal"] if internal else []

    def attach(self, port: Port, vlan: int, untagged: bool = False) -> None:
        """Attaches a port's VLAN: makes them a virtual port of the bridge.

        :param vlan: 1 to 4094
        :param untagged: whether frames leave the port without a tag
        :raises Refused: by the module
        """
        self._set("add", port, vlan, untagged)

    def detach(self, port: Port, vlan: int, untagged: bool = False) -> None:
        """Detaches a port's VLAN again; arguments as for attach()."""
        self._set("delete", port, vlan, untagged)

    def _set(self, verb: str, port: Port, vlan: int, untagged: bool) -> None:
        self._switch.do("vport", verb, self.name, port.name, "vlan", str(vlan), "untagged" if untagged else "tagged",
                        *self._internal)

    def learning(self, mode: str) -> None:
        """Sets the learning mode: "off", "auto" or "control"."""
        self._switch.do("learning", self.name, mode, *self._internal)

    def bind(self, direction: str) -> None:
        """Binds the bridge to its VLAN group, for a user's ACLs: "ingress" or "egress"."""
        self._switch.do("bind", self.name, direction)

    def unbind(self, direction: str) -> None:
        """Unbinds it again: "ingress" or "egress"."""
        self._switch.do("unbind", self.name, direction)

    def destroy(self) -> None:
        """Destroys the bridge, which must be empty."""
        self._switch.do("bridge", "destroy", self.name, *self._internal)
        self._switch.bridges.pop(self.name, None)

    @property
    def vports(self) -> Screen:
        """Its virtual ports, a dict each."""
        return self._switch.show("vports", self.name)

    def __repr__(self) -> str:
        return f"<bridge {self.name}>"


class Switch:
    """A switch, started and with no ports yet. Use it as a context, or close() it.

    :param bridges: for how many bridges the module makes room
    :param virtual_ports: for how many virtual ports
    :param mode: "802.1D", "802.1Q" or "hybrid"
    :param host: the program or command that runs it; None: $KYBRIDGE_HOST, or kybridge-host in the PATH
    :param module: the module's file; None: $KYBRIDGE_MODULE, or the one that belongs to the program
    :param verbosity: what the module logs: 0 nothing, 1 errors, 3 notices, 5 debug, 6 function traces
    :param start: whether the module is started at once; if not, do("start") does it
    :raises HostError: the program cannot be started
    :raises Refused: the module refuses to start
    """

    def __init__(self, bridges: int = 64, virtual_ports: int = 512, *, mode: str = "802.1D",
                 host: str | os.PathLike[str] | Sequence[str] | None = None,
                 module: str | os.PathLike[str] | None = None, verbosity: int | None = None,
                 start: bool = True) -> None:
        self.ports: dict[str, Port] = {}  #: those that port() has made, by name
        self.bridges: dict[str, Bridge] = {}  #: those that bridge() has made, by name
        self.last_sent: Sent | None = None  #: what became of the last frame
        self._done: list[str | tuple[str, bytes]] = []  # commands as lines, frames with their ports
        self._states = 0
        self._client = Client(host, module, verbosity)
        self.version: str = self._client.hello["version"]  #: of the program
        self.module: str = self._client.hello["module"]  #: the module's file
        if start:
            try:
                self.do("start", "mode", mode, "bridges", str(bridges), "virtual-ports", str(virtual_ports))
            except BaseException:
                self._client.abandon()
                raise

    # ---- Ports and bridges ----------------------------------------------------------------------------

    def port(self, name: str, number: int | None = None, *, pvid: int | None = None, swid: int | None = None,
             kind: str | None = None, router: bool = False, lag_member: bool = False, announce: bool = True) -> Port:
        """Makes a port and tells the module of it.

        :param name: letters, digits, '-', '_' and '.', a letter first
        :param number: of 32 bits; None: the next that is free, from 0x10001
        :param pvid: VLAN of untagged and priority-tagged frames, 1 to 4094; None: they are dropped
        :param swid: switch partition, 0 to 255
        :param kind: "network" or "tca"
        :param router: whether it is a router port
        :param lag_member: whether it is a member of a LAG
        :param announce: False: it is there, but the module is not told
        :raises ValueError: there is a port of that name, or of that number
        :raises Refused: by the module
        """
        taken = {port.number for port in self.ports.values()}
        if name in self.ports:
            raise ValueError(f"there is a port {name} already: ports[{name!r}]")
        if number is None:
            number = next(free for free in range(FIRST_PORT, FIRST_PORT + len(taken) + 1) if free not in taken)
        elif number in taken:
            raise ValueError(f"there is a port with the number {number:#x} already")
        words = ["port", "announce" if announce else "add", f"0x{number:x}", "as", name]
        for attribute, value in (("swid", swid), ("kind", kind)):
            if value is not None:
                words += [attribute, str(value)]
        words += ["router"] * router + ["lag-member"] * lag_member
        self.do(*words)
        port = self.ports[name] = Port(self, name, number)
        if pvid is not None:
            port.set(pvid=pvid)
        return port

    def port_called(self, name: str) -> Port:
        """The port of a name, also one that a command has made."""
        return self.ports.get(name) or Port(self, name, None)

    def bridge(self, name: str, *, learning: str | None = None, internal: bool = False) -> Bridge:
        """Creates a bridge.

        :param name: letters, digits, '-', '_' and '.', a letter first
        :param learning: "off", "auto" or "control"; None: as the module has it, "off"
        :param internal: whether it is one of the host's own
        :raises ValueError: there is a bridge of that name
        :raises Refused: by the module
        """
        if name in self.bridges:
            raise ValueError(f"there is a bridge {name} already: bridges[{name!r}]")
        self.do("bridge", "create", "as", name, *(["internal"] if internal else []))
        bridge = self.bridges[name] = Bridge(self, name, internal)
        if learning is not None:
            bridge.learning(learning)
        return bridge

    # ---- Frames ---------------------------------------------------------------------------------------

    def send(self, port: Port, frame: Frame) -> Sent:
        """Sends a frame into a port.

        :param frame: bytes from the destination address on, or a packet of scapy
        :return: what became of it
        :raises WrongCommand: the frame has no bytes
        """
        return self.send_many(port, [frame], trace=True)[0]

    def send_many(self, port: Port, frames: Iterable[Frame], *, trace: bool = False) -> list[Sent]:
        """Sends frames into a port, one after the other, and many of them at once.

        :param trace: whether each one's way is told in words, which takes longer
        :return: what became of each
        """
        sent: list[Sent] = []
        limits = self._client.hello["limits"]
        batch: list[tuple[str, bytes]] = []
        room = 0
        for frame in frames:
            data = frame_bytes(frame)
            size = 2 * len(data) + len(port.name) + REQUEST_OVERHEAD
            if batch and (len(batch) == limits["frames"] or room < size):
                sent += self._send(batch, trace)
                batch = []
            if not batch:
                room = limits["bytes"] - REQUEST_OVERHEAD
            room -= size
            batch.append((port.name, data))
        if batch:
            sent += self._send(batch, trace)
            self.last_sent = sent[-1]
        return sent

    def _send(self, batch: list[tuple[str, bytes]], trace: bool) -> list[Sent]:
        frames = self._client.send(batch, trace)
        self._done += batch
        return [Sent(self, data) for data in frames]

    # ---- Faults, state, screens -----------------------------------------------------------------------

    def fail(self, service: str, status: str | int, nth: int = 1) -> None:
        """Plans a fault: one of the next calls of a service of the SDK is answered with a status, and does nothing.

        :param service: "vlan_port_multi_vlans_set", or "any"
        :param status: its name, "NO_RESOURCES", or its number
        :param nth: which of the next calls, 1 being the very next
        """
        self.do("fail", service, str(nth), "with", str(status))

    def clear_faults(self) -> None:
        """Forgets the planned faults that have not happened yet."""
        self.do("faults", "clear")

    def verify(self) -> None:
        """Compares the module's database with what the hardware holds.

        :raises Failed: they disagree; the text says where
        """
        self.do("verify")

    def remember(self, name: str | None = None) -> str:
        """Remembers the state of module and hardware.

        :return: the name to ask same_as() with
        """
        if name is None:
            self._states += 1
            name = f"state-{self._states}"
        self.do("remember", name)
        return name

    def same_as(self, name: str) -> None:
        """Compares the state with one that was remembered.

        :raises Failed: it has changed; the text shows each fact that is gone (-) or new (+)
        """
        self.do("same-as", name)

    @contextlib.contextmanager
    def unchanged(self) -> Iterator[None]:
        """Fails when what is done in this context leaves another state behind."""
        before = self.remember()
        yield
        self.same_as(before)

    def show(self, screen: str, *arguments: str) -> Screen:
        """A screen: "bridges", "vports", "ports", "rules", "bindings", "vlans", "rstp", "groups", "memory", "faults",
        "fdb", "counters" or "journal", as a list of dicts."""
        return self.do("show", screen, *arguments).screens[0]

    def explain(self, port: Port, vlan: int) -> list[Screen]:
        """The whole story of a port's VLAN: its bridge, rules, bindings and VLANs, and the calls that made them."""
        return self.do("explain", port.name, str(vlan)).screens

    # ---- Pictures -------------------------------------------------------------------------------------

    def draw(self, file: str | os.PathLike[str]) -> None:
        """Draws ports, virtual ports, bridges and rules.

        :param file: its end says which kind of picture: .svg, .png, or .dot for Graphviz
        :raises Failed: the file cannot be written, or Graphviz is not installed
        """
        self.do("draw", os.fspath(file))

    def draw_frame(self, file: str | os.PathLike[str]) -> None:
        """Draws the same with the last frame's way, and where it was dropped; as draw()."""
        self.do("draw", "frame", os.fspath(file))

    def _repr_svg_(self) -> str | None:
        """How Jupyter shows a switch; None without Graphviz."""
        with tempfile.TemporaryDirectory() as folder:
            file = os.path.join(folder, "switch.svg")
            try:
                self._client.do(["draw", file])
            except Error:
                return None
            with open(file, encoding="utf-8") as picture:
                return picture.read()

    # ---- Commands -------------------------------------------------------------------------------------

    def do(self, *command: str) -> Answer:
        """Carries out any command of kybridge-host.

        :param command: a line as in a script, "expect 21 bridge destroy 7", or its words one by one
        :raises WrongCommand: it is no command, or cannot be carried out now; nothing was done
        :raises Refused: the module answered with another status than expected
        :raises Failed: what the command checks does not hold
        :raises Misuse: the module misused the SDK
        """
        words = command[0] if len(command) == 1 else command
        text = command_text(words)
        try:
            answer = self._client.do(words)
        except WrongCommand:
            self._done.append(f"# {text}    (not carried out)")
            raise
        except Refused as refused:
            self._done.append(text if text.startswith("expect ") else f"expect {refused.status} {text}")
            raise
        except (Failed, Misuse):
            self._done.append(f"{text}    # this failed")
            raise
        self._done.append(text)
        if answer.frames:
            self.last_sent = Sent(self, answer.frames[0])
        return answer

    @property
    def script(self) -> str:
        """All that was done so far as a script for kybridge-host, which repeats it."""
        return "".join((done if isinstance(done, str) else f"send {done[0]} {done[1].hex()}") + "\n"
                       for done in self._done)

    # ---- Its end --------------------------------------------------------------------------------------

    def close(self) -> None:
        """Stops the module and ends the process behind the switch.

        :raises HostError: it did not end well, for example with memory left over
        """
        self._client.close()

    def __enter__(self) -> Switch:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 traceback: TracebackType | None) -> None:
        if kind is None:
            self.close()
        else:
            self._client.abandon()
