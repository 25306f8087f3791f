"""The bridge module of a switch, its hardware and its ports, from Python.

    import kybridge

    with kybridge.Switch() as switch:
        north, south = switch.port("north"), switch.port("south")
        red = switch.bridge("red")
        red.attach(north, vlan=100)
        red.attach(south, vlan=100, untagged=True)
        sent = switch.send(north, frame)  # bytes, or a packet of scapy
        assert sent.ports == {south}

Behind it runs kybridge-host, which loads the module, stands in for the hardware and forwards the frames; nothing of it
needs root or a network interface. docs/python.md shows more.
"""

from .client import Answer, Client, LogLine, Screen
from .errors import Error, Failed, HostError, Misuse, Refused, WrongCommand
from .frames import Frame, Sent, Transmission
from .switch import Bridge, Port, Switch

__all__ = [
    "Answer",
    "Bridge",
    "Client",
    "Error",
    "Failed",
    "Frame",
    "HostError",
    "LogLine",
    "Misuse",
    "Port",
    "Refused",
    "Screen",
    "Sent",
    "Switch",
    "Transmission",
    "WrongCommand",
]
