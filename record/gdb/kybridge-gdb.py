"""Commands for gdb that show the bridge module's database in a running process or a core file.

gdb reads this file by itself where it is installed, when the process has libkybridge.so.1 and its debug symbols are
there. Nothing is called in the process, and nothing in it is changed.
"""

import gdb


def database():
    """The module's database. Raises gdb.GdbError where there is none."""
    pointer = gdb.parse_and_eval("bridge_db")
    if int(pointer) == 0:
        raise gdb.GdbError("the module is not started: bridge_db is NULL")
    return pointer.dereference()


def records(container, record_type, link):
    """The records of a map, in ascending order of their keys."""
    quick_map = container["map"]
    nil = quick_map["nil"].address
    record = gdb.lookup_type(record_type)
    offset = next(field.bitpos // 8 for field in record.fields() if field.name == link)
    if int(quick_map["state"]) != 2:  # CL_INITIALIZED; else it was never built, as in 802.1Q mode
        return
    seen = 0
    item = quick_map["nil"]["pool_item"]["list_item"]["p_next"]
    while int(item) != int(nil):
        seen += 1
        if seen > int(quick_map["count"]):
            raise gdb.GdbError(f"the map of {record_type} is damaged: its walk is longer than its count")
        byte = item.cast(gdb.lookup_type("char").pointer()) - offset
        yield byte.cast(record.pointer()).dereference()
        item = item.dereference()["p_next"]


def bridges(db):
    return records(db["bridge_map"], "bridge_db_bridge_t", "map_item")


def log_ports(db):
    return records(db["log_port_map"], "bridge_db_log_port_t", "map_item")


def vports_of_bridge(bridge):
    return records(bridge["virtual_port_map"], "bridge_db_virtual_port_t", "bridge_map_item")


def vports_of_port(port):
    return records(port["back_ref_map"], "bridge_db_virtual_port_t", "back_ref_map_item")


def offset_text(pointer):
    return str(int(pointer["offset"])) if int(pointer) != 0 else "-"


def tagging(vport):
    return {0: "tagged", 1: "untagged"}.get(int(vport["egress_mode"]), str(int(vport["egress_mode"])))


def port_text(log_port):
    return f"0x{int(log_port):08X}"


def print_table(headings, rows):
    widths = [max(len(str(cell)) for cell in column) for column in zip(headings, *rows)]
    for row in [headings, *rows]:
        print("  " + "  ".join(str(cell).ljust(width) for cell, width in zip(row, widths)).rstrip())


def vlan_uses(port):
    """The VLANs that the module keeps a port in, with the count of uses."""
    counters = port["vlan_ref_cnt"]
    if int(counters) == 0:
        return {}
    table = gdb.selected_inferior().read_memory(int(counters), 4097).tobytes()
    return {vlan: count for vlan, count in enumerate(table) if count != 0}


class Prefix(gdb.Command):
    """Show the bridge module's database."""

    def __init__(self):
        super().__init__("kybridge", gdb.COMMAND_DATA, gdb.COMPLETE_NONE, True)


class Bridges(gdb.Command):
    """List the bridges: internal VLAN, virtual ports, egress rule with its uses, references, VLAN group, learning."""

    def __init__(self):
        super().__init__("kybridge bridges", gdb.COMMAND_DATA)

    def invoke(self, _argument, _from_tty):
        rows = [
            (
                int(bridge["bridge_id"]),
                int(bridge["int_vlan"]),
                int(bridge["virtual_port_map"]["map"]["count"]),
                offset_text(bridge["egress_offset"]),
                int(bridge["egress_rule_ref_cnt"]),
                int(bridge["ref_cnt"]),
                "-" if int(bridge["vlan_group"]) == 0xFFFF else int(bridge["vlan_group"]),
                int(bridge["learning_mode"]),
                "yes" if int(bridge["is_internal"]) else "no",
            )
            for bridge in bridges(database())
        ]
        print_table(
            ("BRIDGE", "VLAN", "VPORTS", "EGRESS RULE", "USES", "REFERENCES", "GROUP", "LEARNING", "INTERNAL"), rows
        )


class VirtualPorts(gdb.Command):
    """List the virtual ports of all bridges, with the offsets of their rules."""

    def __init__(self):
        super().__init__("kybridge vports", gdb.COMMAND_DATA)

    def invoke(self, _argument, _from_tty):
        rows = [
            (
                int(bridge["bridge_id"]),
                port_text(vport["log_port"]),
                int(vport["vlan"]),
                tagging(vport),
                offset_text(vport["ingress_offset"]),
                offset_text(vport["egress_offset"]),
            )
            for bridge in bridges(database())
            for vport in vports_of_bridge(bridge)
        ]
        print_table(("BRIDGE", "PORT", "VLAN", "EGRESS", "INGRESS RULE", "EGRESS RULE"), rows)


class Ports(gdb.Command):
    """List the logical ports: switch partition, virtual ports, uses of the egress binding, uses of each VLAN."""

    def __init__(self):
        super().__init__("kybridge ports", gdb.COMMAND_DATA)

    def invoke(self, _argument, _from_tty):
        rows = [
            (
                port_text(port["log_port"]),
                int(port["swid"]),
                int(port["back_ref_map"]["map"]["count"]),
                int(port["eacl_bound_cnt"]),
                " ".join(f"{vlan}:{count}" for vlan, count in vlan_uses(port).items()) or "-",
            )
            for port in log_ports(database())
        ]
        print_table(("PORT", "SWID", "VPORTS", "BOUND BY", "VLAN:USES"), rows)


def disagreements(db):
    """What does not hold in a database between two calls, in words."""
    by_bridge = {}
    for bridge in bridges(db):
        number = int(bridge["bridge_id"])
        using = 0
        for vport in vports_of_bridge(bridge):
            key = (int(vport["log_port"]), int(vport["vlan"]))
            if key in by_bridge:
                yield f"port {port_text(key[0])} VLAN {key[1]} is in bridge {by_bridge[key]} and in bridge {number}"
            by_bridge[key] = number
            using += int(vport["egress_offset"]) != 0
            if int(vport["bridge_id"]) != number:
                yield f"port {port_text(key[0])} VLAN {key[1]} of bridge {number} names bridge {int(vport['bridge_id'])}"
        if using != int(bridge["egress_rule_ref_cnt"]):
            yield f"bridge {number}: {using} virtual ports use its rule, it counts {int(bridge['egress_rule_ref_cnt'])}"
        if (int(bridge["egress_offset"]) != 0) != (using != 0):
            yield f"bridge {number}: its rule is {offset_text(bridge['egress_offset'])}, and {using} use it"

    vlans = {}
    for vlan in records(db["int_vlan_map"], "bridge_db_int_vlan_t", "map_item"):
        vlans[int(vlan["bridge_id"])] = int(vlan["int_vlan_id"])
    for bridge in bridges(db):
        if vlans.pop(int(bridge["bridge_id"]), None) != int(bridge["int_vlan"]):
            yield f"bridge {int(bridge['bridge_id'])} does not own its internal VLAN {int(bridge['int_vlan'])}"
    for bridge, vlan in vlans.items():
        yield f"internal VLAN {vlan} belongs to bridge {bridge}, which there is not"

    linked = set()
    for port in log_ports(db):
        log_port = int(port["log_port"])
        for vport in vports_of_port(port):
            key = (int(vport["log_port"]), int(vport["vlan"]))
            linked.add(key)
            if key[0] != log_port or key not in by_bridge:
                yield f"port {port_text(log_port)} lists port {port_text(key[0])} VLAN {key[1]}, which no bridge has"
        for vlan, uses in vlan_uses(port).items():
            if uses > 2:
                yield f"port {port_text(log_port)} counts {uses} uses of VLAN {vlan}"
    for log_port, vlan in by_bridge.keys() - linked:
        yield f"port {port_text(log_port)} VLAN {vlan} is in bridge {by_bridge[log_port, vlan]}, its port does not list it"


class Check(gdb.Command):
    """Tell whether the database agrees with itself. Inside a call it need not."""

    def __init__(self):
        super().__init__("kybridge check", gdb.COMMAND_DATA)

    def invoke(self, _argument, _from_tty):
        found = list(disagreements(database()))
        for text in found:
            print(text)
        print("the database agrees with itself" if not found else f"{len(found)} disagreements")


for command in (Prefix, Bridges, VirtualPorts, Ports, Check):
    command()
