// Screens of what the module holds: bridges, virtual ports, logical ports, VLAN groups.
#include "host/screens/screens.h"

#include <set>

#include <fmt/format.h>

#include "bridge/db.h"

namespace host {

namespace {

using enum Table::Align;

/// What no query tells of a bridge; NULL when there is no such bridge.
const bridge_db_bridge_t *bridge_record(const Host &host, std::uint16_t bridge_id)
{
    return host.module.is_started() ? (*host.module.bridge_db)->bridge_map.find(bridge_id) : nullptr;
}

/// Internal VLANs of a port's bridges, or with 0 of all bridges.
std::vector<std::uint16_t> int_vlans(const Host &host, std::uint32_t log_port)
{
    std::vector<std::uint16_t> vlans(KY_VLAN_ID_MAX);
    auto count = static_cast<std::uint32_t>(vlans.size());
    if (!host.module.is_started() || host.module.ky_bridge_int_vlan_list_get(log_port, vlans.data(), &count) != 0)
        return {};
    vlans.resize(count);
    return vlans;
}

/// Every bridge, in the order of internal VLANs.
std::vector<std::uint16_t> bridge_ids(const Host &host)
{
    std::vector<std::uint16_t> bridge_ids;
    for (const std::uint16_t int_vlan : int_vlans(host, 0)) {
        std::uint16_t bridge_id = 0;
        if (host.module.ky_bridge_int_vlan_bridge_id_get(int_vlan, &bridge_id) == 0)
            bridge_ids.push_back(bridge_id);
    }
    return bridge_ids;
}

std::vector<ky_bridge_port_t> virtual_ports(const Host &host, std::uint16_t bridge_id)
{
    std::vector<ky_bridge_port_t> list(KY_VIRTUAL_PORTS_MAX);
    auto count = static_cast<std::uint32_t>(list.size());
    if (host.module.ky_bridge_port_get(bridge_id, list.data(), &count, 1) != 0)
        return {};
    list.resize(count);
    return list;
}

std::uint16_t int_vlan_of(const Host &host, std::uint16_t bridge_id)
{
    std::uint16_t int_vlan = 0;
    host.module.ky_bridge_int_vlan_id_get(bridge_id, &int_vlan, 1);
    return int_vlan;
}

bool is_internal(const Host &host, std::uint16_t bridge_id)
{
    std::uint16_t int_vlan = 0;
    return host.module.ky_bridge_int_vlan_id_get(bridge_id, &int_vlan, 0) == KY_STATUS_ENTRY_NOT_FOUND;
}

std::string learning_of(const Host &host, std::uint16_t bridge_id)
{
    ky_fdb_learn_mode_t mode = 0;
    host.module.ky_bridge_get_learning_mode(bridge_id, &mode, 1);
    return name_of(learning_names(), mode);
}

std::optional<std::uint16_t> group_of(const Host &host, std::uint16_t bridge_id)
{
    std::uint16_t group = 0;
    return host.module.ky_bridge_int_vlan_group_get(bridge_id, &group) == 0 ? std::optional(group) : std::nullopt;
}

/// The directions in which a bridge is bound to its VLAN group.
std::string bound_directions(const bridge_db_bridge_t *bridge)
{
    std::string directions;
    for (const NamedNumber &direction : direction_names())
        if (bridge != nullptr && bridge->acl_bound[direction.number] != 0)
            directions += (directions.empty() ? "" : " ") + direction.name;
    return directions;
}

/// A port's VLAN counters that are not 0: "1:1 100:1".
std::string vlan_counters(const bridge_db_log_port_t *record)
{
    std::string uses;
    for (int vlan = 0; record != nullptr && vlan < BRIDGE_DB_VLAN_REF_CNT_SIZE; ++vlan)
        if (record->vlan_ref_cnt[vlan] != 0)
            uses += fmt::format("{}{}:{}", uses.empty() ? "" : " ", vlan, record->vlan_ref_cnt[vlan]);
    return uses;
}

std::string attributes(const sdk::Port &port)
{
    std::string attributes = name_of(port_kind_names(), port.kind);
    if (port.router_port)
        attributes += ", router";
    if (port.lag_member)
        attributes += ", LAG member";
    if (!port.link_up)
        attributes += ", down";
    return attributes;
}

/// How far a port has come in the module; empty: the module does not know it.
std::string state_in_module(const Host &host, std::uint32_t log_port)
{
    if (!host.module.is_started())
        return "";
    if (host.module.ky_bridge_log_port_member_state(0, log_port) == KY_STATUS_SUCCESS)
        return "member";
    return host.module.ky_bridge_port_acl_binding_get(log_port, nullptr, nullptr) == 0 ? "announced" : "";
}

/// The module's ACLs that apply to a port: "1 in, 2 out".
std::string module_acls(const Host &host, std::uint32_t log_port)
{
    std::uint32_t ingress_acl = 0;
    std::uint32_t egress_acl = 0;
    if (!host.module.is_started() ||
        host.module.ky_bridge_port_acl_binding_get(log_port, &ingress_acl, &egress_acl) != KY_STATUS_SUCCESS)
        return "";
    const std::string egress = egress_acl == KY_ACL_ID_NONE ? "" : fmt::format(", {} out", egress_acl);
    return fmt::format("{} in{}", ingress_acl, egress);
}

/// Says why a screen of the module's state is empty, where that is not plain to see.
void note_state(const Host &host, Table &table)
{
    ky_bridge_sdk_mode_t mode = KY_BRIDGE_SDK_MODE_802_1Q;
    if (!host.module.is_started())
        table.note("the module is not started");
    else if (host.module.ky_bridge_mode_get(&mode) == 0 && mode == KY_BRIDGE_SDK_MODE_802_1Q)
        table.note("the module runs in 802.1Q mode");
}

} // namespace

const bridge_db_log_port_t *log_port_record(const Host &host, std::uint32_t log_port)
{
    return host.module.is_started() ? (*host.module.bridge_db)->log_port_map.find(log_port) : nullptr;
}

Table bridges_screen(const Host &host)
{
    Table table("bridges", {{"BRIDGE"},
                            {"ID", right},
                            {"INTERNAL VLAN", right},
                            {"VIRTUAL PORTS", right},
                            {"LEARNING"},
                            {"REFERENCES", right},
                            {"VLAN GROUP", right},
                            {"KIND"}});
    note_state(host, table);
    for (const std::uint16_t bridge_id : bridge_ids(host)) {
        const bridge_db_bridge_t *record = bridge_record(host, bridge_id);
        const auto group = group_of(host, bridge_id);
        std::uint32_t vport_count = 0;
        host.module.ky_bridge_port_get(bridge_id, nullptr, &vport_count, 1);
        table.add({host.names.bridge(bridge_id), fmt::to_string(bridge_id),
                   fmt::to_string(int_vlan_of(host, bridge_id)), fmt::to_string(vport_count),
                   learning_of(host, bridge_id), record != nullptr ? fmt::to_string(record->ref_cnt) : "",
                   group ? fmt::to_string(*group) : "", is_internal(host, bridge_id) ? "internal" : "user"});
    }
    return table;
}

Table vports_screen(const Host &host, std::optional<std::uint16_t> bridge_id)
{
    Table table("virtual ports", {{"BRIDGE"}, {"PORT"}, {"VLAN", right}, {"EGRESS"}, {"INTERNAL VLAN", right}});
    note_state(host, table);
    for (const std::uint16_t id : bridge_ids(host)) {
        if (bridge_id && *bridge_id != id)
            continue;
        for (const ky_bridge_port_t &vport : virtual_ports(host, id))
            table.add({host.names.bridge(id), host.names.port(vport.log_port), fmt::to_string(vport.vlan),
                       name_of(tagging_names(), vport.egress_mode), fmt::to_string(int_vlan_of(host, id))});
    }
    return table;
}

Table ports_screen(const Host &host)
{
    // The SDK's ports, and those that the module knows though the SDK has none.
    std::set<std::uint32_t> log_ports;
    for (const auto &[log_port, port] : host.device.ports.ports)
        log_ports.insert(log_port);
    if (host.module.is_started()) {
        const auto &known = (*host.module.bridge_db)->log_port_map;
        for (const auto *record = known.first(); record != nullptr; record = known.next(record))
            log_ports.insert(record->log_port);
    }

    Table table("ports", {{"PORT"},
                          {"NUMBER"},
                          {"SWID", right},
                          {"KIND"},
                          {"IN THE MODULE"},
                          {"VIRTUAL PORTS", right},
                          {"INTERNAL VLANS"},
                          {"ACLS"},
                          {"VLAN:USES"}});
    note_state(host, table);
    for (const std::uint32_t log_port : log_ports) {
        const sdk::Port *port = host.device.ports.find(log_port);
        const bridge_db_log_port_t *record = log_port_record(host, log_port);
        table.add({host.names.port(log_port), fmt::format("0x{:08X}", log_port),
                   port != nullptr ? fmt::to_string(port->swid) : "", port != nullptr ? attributes(*port) : "",
                   state_in_module(host, log_port), record != nullptr ? fmt::to_string(record->eacl_bound_cnt) : "",
                   fmt::format("{}", fmt::join(int_vlans(host, log_port), " ")), module_acls(host, log_port),
                   vlan_counters(record)});
    }
    return table;
}

Table groups_screen(const Host &host)
{
    Table table("VLAN groups", {{"GROUP", right}, {"VLANS"}, {"BRIDGE"}, {"BOUND FOR"}});
    for (const auto &[group, members] : host.device.acl.vlan_groups) {
        std::string bridge;
        std::string directions;
        for (const std::uint16_t bridge_id : bridge_ids(host)) {
            if (group_of(host, bridge_id) != group)
                continue;
            bridge = host.names.bridge(bridge_id);
            directions = bound_directions(bridge_record(host, bridge_id));
        }
        table.add({fmt::to_string(group), fmt::format("{}", fmt::join(members.vlans, " ")), bridge, directions});
    }
    return table;
}

} // namespace host
