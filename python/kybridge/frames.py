"""Frames that are sent into ports, and what becomes of them."""

from __future__ import annotations

import functools
from typing import TYPE_CHECKING, Any, Iterator, Mapping, SupportsBytes, Union

if TYPE_CHECKING:
    from .switch import Port, Switch

Frame = Union[bytes, bytearray, memoryview, SupportsBytes]
"""A frame from its destination address on, without check sequence: bytes, or a packet of scapy."""

FRAME_SIZE_MIN = 60
"""Bytes of the smallest frame on a wire, without its check sequence."""


def frame_bytes(frame: Frame) -> bytes:
    """The bytes of a frame.

    :raises TypeError: it is none
    """
    if isinstance(frame, (bytes, bytearray, memoryview)) or hasattr(frame, "__bytes__"):
        return bytes(frame)
    raise TypeError(f"{frame!r} is no frame: expected bytes, or a packet of scapy")


def same_on_the_wire(one: bytes, other: bytes) -> bool:
    """Whether two frames are the same, whoever has padded them to the smallest size."""
    return one.ljust(FRAME_SIZE_MIN, b"\0") == other.ljust(FRAME_SIZE_MIN, b"\0")


@functools.lru_cache(maxsize=None)
def _packet_class() -> Any:
    """scapy's Ether, compared as the wire has it. A packet that was taken apart has its lengths and check sums filled
    in, one that was just written has not; scapy takes these for different."""
    try:
        from scapy.layers.l2 import Ether
        import scapy.layers.inet  # noqa: F401: so that what Ether carries is known
    except ImportError as error:
        raise ImportError("packets need scapy (Debian: python3-scapy); without it, compare bytes") from error

    def equal(self: Any, other: object) -> bool:
        return isinstance(other, SupportsBytes) and same_on_the_wire(bytes(self), bytes(other))

    return type("Ether", (Ether,), {"name": "Ethernet", "match_subclass": True, "__eq__": equal, "__hash__": None})


class Transmission:
    """A frame that left a port."""

    def __init__(self, port: Port, frame: bytes) -> None:
        self.port = port
        self.frame = frame  #: its bytes

    @functools.cached_property
    def packet(self) -> Any:
        """The frame as a packet of scapy. It equals any packet or bytes that are the same on the wire, padding aside.

        :raises ImportError: scapy is not installed
        """
        return _packet_class()(self.frame)

    @property
    def vlan(self) -> int | None:
        """The VLAN of its tag, None when it has left untagged."""
        return int.from_bytes(self.frame[14:16], "big") & 0xFFF if self.frame[12:14] == b"\x81\x00" else None

    @property
    def pcp(self) -> int | None:
        """The priority of its tag, None when it has left untagged."""
        return self.frame[14] >> 5 if self.vlan is not None else None

    def __bytes__(self) -> bytes:
        return self.frame

    def __eq__(self, other: object) -> bool:
        """Whether it left the same port with the same bytes."""
        return isinstance(other, Transmission) and (self.port, self.frame) == (other.port, other.frame)

    def __repr__(self) -> str:
        tag = "untagged" if self.vlan is None else f"vlan {self.vlan} pcp {self.pcp}"
        return f"<{self.port.name} {tag}, {len(self.frame)} bytes: {self.frame.hex()}>"


class Sent:
    """What became of a frame: `sent[port]` is what left there, and printing it tells its way, decision by decision."""

    def __init__(self, switch: Switch, data: Mapping[str, Any]) -> None:
        self._switch = switch
        self._data = data

    @property
    def ports(self) -> set[Port]:
        """The ports that it left at."""
        return {self._switch.port_called(sent["port"]) for sent in self._data["sent"]}

    @property
    def dropped(self) -> str | None:
        """Why it was meant for no port at all, "not a member"; None when it was meant for some."""
        reason: str | None = self._data["dropped"]
        return reason

    @property
    def not_sent(self) -> dict[Port, str]:
        """The ports that it was meant for and did not leave at, with the reasons."""
        return {self._switch.port_called(exit["port"]): exit["why"] for exit in self._data["not_sent"]}

    @property
    def trace(self) -> str:
        """Its way through the switch in words; empty where it was sent without one."""
        trace: str = self._data.get("trace", "")
        return trace

    def __getitem__(self, port: Port) -> Transmission:
        """What left a port.

        :raises KeyError: nothing did; the text says why
        """
        for sent in self._data["sent"]:
            if sent["port"] == port.name:
                return Transmission(port, bytes.fromhex(sent["frame"]))
        why = self.dropped or self.not_sent.get(port) or "it was not meant for this port"
        raise KeyError(f"nothing left {port.name}: {why}")

    def __iter__(self) -> Iterator[Transmission]:
        for sent in self._data["sent"]:
            yield Transmission(self._switch.port_called(sent["port"]), bytes.fromhex(sent["frame"]))

    def __len__(self) -> int:
        return len(self._data["sent"])

    def __bool__(self) -> bool:
        """Whether it left anywhere."""
        return len(self) != 0

    def __contains__(self, port: object) -> bool:
        return port in self.ports

    def __str__(self) -> str:
        return self.trace or repr(self)

    def __repr__(self) -> str:
        return f"<sent {list(self)}>" if self else f"<sent nowhere: {self.dropped or self.not_sent}>"
