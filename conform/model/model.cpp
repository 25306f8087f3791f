#include "conform/model/model.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "conform/model/database.h"

namespace operations {

namespace {

using Bridge = State::Bridge;
using Port = State::Port;
using consistency::for_each;

Bridge *find_bridge(State &state, std::uint32_t bridge_id, bool internal)
{
    const auto found = state.bridges.find(bridge_id);
    return found == state.bridges.end() || (found->second.internal && !internal) ? nullptr : &found->second;
}

/// The bridge that a pair of port and VLAN is attached to.
Bridge *find_attached(State &state, std::uint32_t port, std::uint32_t vlan)
{
    for (auto &[bridge_id, bridge] : state.bridges)
        if (const auto found = bridge.virtual_ports.find(port);
            found != bridge.virtual_ports.end() && found->second.vlan == vlan)
            return &bridge;
    return nullptr;
}

std::size_t count_virtual_ports(const State &state)
{
    std::size_t count = 0;
    for (const auto &[bridge_id, bridge] : state.bridges)
        count += bridge.virtual_ports.size();
    return count;
}

void detach(State &state, Bridge &bridge, std::uint32_t port)
{
    Port &of = state.ports.at(port);
    --of.egress_uses;
    for (const std::uint32_t vlan : {bridge.virtual_ports.at(port).vlan, bridge.int_vlan})
        if (--of.vlan_uses.at(vlan) == 0)
            of.vlan_uses.erase(vlan);
    bridge.virtual_ports.erase(port);
}

void detach_all(State &state, std::uint32_t port)
{
    for (auto &[bridge_id, bridge] : state.bridges)
        if (bridge.virtual_ports.contains(port))
            detach(state, bridge, port);
}

ky_status_t start(State &state, const Operation &operation, const Surroundings &sdk)
{
    if (operation.port == 1)
        return KY_STATUS_PARAM_ERROR;
    if (operation.value == KY_BRIDGE_SDK_MODE_802_1D) {
        if (operation.bridge < 1 || operation.bridge > sdk.limits.max_bridges || operation.vlan < 1 ||
            operation.vlan > KY_VIRTUAL_PORTS_MAX)
            return KY_STATUS_PARAM_EXCEEDS_RANGE;
        if (operation.port > 1)
            return KY_STATUS_PARAM_ERROR;
        state.max_virtual_ports = operation.vlan;
        for (std::uint32_t number = 1; number <= operation.bridge; ++number) {
            state.free_bridges.push_back(number);
            state.free_vlans.push_back(number);
        }
    } else if (operation.value != KY_BRIDGE_SDK_MODE_802_1Q) {
        return KY_STATUS_PARAM_ERROR;
    }
    state.mode = operation.value;
    return KY_STATUS_SUCCESS;
}

Answer create(State &state, bool internal)
{
    if (state.free_bridges.empty())
        return {KY_STATUS_NO_RESOURCES};
    const std::uint32_t bridge_id = state.free_bridges.front();
    Bridge &bridge = state.bridges[bridge_id];
    bridge.internal = internal;
    bridge.int_vlan = state.free_vlans.front();
    state.free_bridges.erase(state.free_bridges.begin());
    state.free_vlans.erase(state.free_vlans.begin());
    return {KY_STATUS_SUCCESS, {bridge_id}};
}

ky_status_t destroy(State &state, std::uint32_t bridge_id, bool internal)
{
    const Bridge *const bridge = find_bridge(state, bridge_id, internal);
    if (bridge == nullptr)
        return KY_STATUS_ENTRY_NOT_FOUND;
    if (!bridge->virtual_ports.empty() || bridge->references != 0 || bridge->group != KY_VLAN_GROUP_NONE)
        return KY_STATUS_RESOURCE_IN_USE;
    state.free_bridges.insert(state.free_bridges.begin(), bridge_id);
    state.free_vlans.insert(state.free_vlans.begin(), bridge->int_vlan);
    state.bridges.erase(bridge_id);
    return KY_STATUS_SUCCESS;
}

ky_status_t reference(State &state, const Operation &operation, bool take)
{
    Bridge *const bridge = find_bridge(state, operation.bridge, true);
    if (bridge == nullptr)
        return KY_STATUS_ENTRY_NOT_FOUND;
    if (take)
        ++bridge->references;
    else if (bridge->references != 0)
        --bridge->references;
    return KY_STATUS_SUCCESS;
}

/// What the checks before an ADD or DELETE say of the port and the numbers.
ky_status_t check_request(const Operation &operation, const Surroundings &sdk)
{
    if (const ky_status_t status = sdk.check_port(operation.port))
        return status;
    return operation.vlan > KY_VLAN_ID_MAX || operation.value > KY_EGRESS_MODE_UNTAGGED ? KY_STATUS_PARAM_EXCEEDS_RANGE
                                                                                        : KY_STATUS_SUCCESS;
}

ky_status_t add(State &state, const Operation &operation, const Surroundings &sdk)
{
    Bridge *const bridge = find_bridge(state, operation.bridge, operation.flag);
    if (bridge == nullptr)
        return KY_STATUS_ENTRY_NOT_FOUND;
    if (!bridge->virtual_ports.empty() && bridge->virtual_ports.begin()->second.vlan != operation.vlan)
        return KY_STATUS_PARAM_ERROR;
    if (find_attached(state, operation.port, operation.vlan) != nullptr)
        return KY_STATUS_ENTRY_ALREADY_EXISTS;
    if (const ky_status_t status = check_request(operation, sdk))
        return status;
    if (count_virtual_ports(state) == state.max_virtual_ports)
        return KY_STATUS_NO_RESOURCES;
    const auto port = state.ports.find(operation.port);
    if (port == state.ports.end())
        return KY_STATUS_ENTRY_NOT_FOUND;
    bridge->virtual_ports[operation.port] = {.vlan = operation.vlan, .mode = operation.value};
    ++port->second.egress_uses;
    ++port->second.vlan_uses[operation.vlan];
    ++port->second.vlan_uses[bridge->int_vlan];
    return KY_STATUS_SUCCESS;
}

ky_status_t remove(State &state, const Operation &operation, const Surroundings &sdk)
{
    Bridge *const bridge = find_bridge(state, operation.bridge, operation.flag);
    if (bridge == nullptr)
        return KY_STATUS_ENTRY_NOT_FOUND;
    if (const ky_status_t status = check_request(operation, sdk))
        return status;
    if (find_attached(state, operation.port, operation.vlan) != bridge)
        return KY_STATUS_ENTRY_NOT_FOUND;
    detach(state, *bridge, operation.port);
    return KY_STATUS_SUCCESS;
}

ky_status_t clear(State &state, const Operation &operation, const Surroundings &sdk)
{
    const auto port = state.ports.find(operation.port);
    if (port == state.ports.end())
        return KY_STATUS_SUCCESS;
    // A port that can carry no virtual ports any more keeps those that it has.
    if (port->second.egress_uses != 0 && check_request(operation, sdk) != KY_STATUS_SUCCESS)
        return KY_STATUS_PARAM_ERROR;
    detach_all(state, operation.port);
    if (operation.flag)
        state.ports.erase(operation.port);
    return KY_STATUS_SUCCESS;
}

ky_status_t announce(State &state, std::uint32_t port, std::uint32_t swid, const Surroundings &sdk)
{
    if (state.ports.contains(port))
        return KY_STATUS_ENTRY_ALREADY_EXISTS;
    if (state.ports.size() == sdk.limits.max_log_ports)
        return KY_STATUS_NO_RESOURCES;
    state.ports[port].swid = swid;
    return KY_STATUS_SUCCESS;
}

Answer bind(State &state, const Operation &operation, const Surroundings &sdk)
{
    if (operation.null)
        return {KY_STATUS_PARAM_NULL};
    if (operation.value > KY_ACL_DIRECTION_EGRESS)
        return {KY_STATUS_PARAM_EXCEEDS_RANGE};
    Bridge *const bridge = find_bridge(state, operation.bridge, false);
    if (bridge == nullptr)
        return {KY_STATUS_ENTRY_NOT_FOUND};
    if (bridge->bound.at(operation.value))
        return {KY_STATUS_RESOURCE_IN_USE};
    bridge->bound.at(operation.value) = true;
    if (bridge->group == KY_VLAN_GROUP_NONE)
        bridge->group = sdk.next_group;
    return {KY_STATUS_SUCCESS, {bridge->group}};
}

ky_status_t unbind(State &state, const Operation &operation)
{
    if (operation.value > KY_ACL_DIRECTION_EGRESS)
        return KY_STATUS_PARAM_EXCEEDS_RANGE;
    Bridge *const bridge = find_bridge(state, operation.bridge, false);
    if (bridge == nullptr || !bridge->bound.at(operation.value))
        return KY_STATUS_ENTRY_NOT_FOUND;
    bridge->bound.at(operation.value) = false;
    if (!bridge->bound[0] && !bridge->bound[1])
        bridge->group = KY_VLAN_GROUP_NONE;
    return KY_STATUS_SUCCESS;
}

/// What a question about one number of a bridge is answered.
Answer ask(const Operation &operation, ky_status_t status_for_null, const Bridge *bridge, std::uint32_t number)
{
    if (operation.null)
        return {status_for_null};
    if (bridge == nullptr)
        return {KY_STATUS_ENTRY_NOT_FOUND};
    return {KY_STATUS_SUCCESS, {number}};
}

/// A list cut to the capacity that was given, behind its length.
Answer cut(std::vector<std::uint32_t> entries, std::size_t numbers_per_entry, std::uint32_t capacity)
{
    const std::size_t count = std::min<std::size_t>({entries.size() / numbers_per_entry, capacity, 8});
    entries.resize(count * numbers_per_entry);
    entries.insert(entries.begin(), static_cast<std::uint32_t>(count));
    return {KY_STATUS_SUCCESS, std::move(entries)};
}

Answer port_list(State &state, const Operation &operation)
{
    const Bridge *const bridge = find_bridge(state, operation.bridge, operation.flag);
    if (bridge == nullptr || operation.null)
        return {bridge == nullptr ? ky_status_t{KY_STATUS_ENTRY_NOT_FOUND} : ky_status_t{KY_STATUS_PARAM_ERROR}};
    if (operation.value == 0)
        return {KY_STATUS_SUCCESS, {static_cast<std::uint32_t>(bridge->virtual_ports.size())}};
    std::vector<std::uint32_t> entries;
    for (const auto &[port, virtual_port] : bridge->virtual_ports)
        entries.insert(entries.end(), {port, virtual_port.vlan, virtual_port.mode});
    return cut(std::move(entries), 3, operation.value);
}

Answer int_vlan_list(const State &state, const Operation &operation)
{
    if (operation.null)
        return {KY_STATUS_PARAM_NULL};
    std::map<std::uint32_t, std::uint32_t> ordered; ///< internal VLANs, in the order of what they are listed by
    for (const auto &[bridge_id, bridge] : state.bridges) {
        const auto attached = bridge.virtual_ports.find(operation.port);
        if (operation.port == 0)
            ordered[bridge.int_vlan] = bridge.int_vlan;
        else if (attached != bridge.virtual_ports.end())
            ordered[attached->second.vlan] = bridge.int_vlan;
    }
    if (operation.port != 0 && !state.ports.contains(operation.port))
        return {KY_STATUS_ENTRY_NOT_FOUND};
    std::vector<std::uint32_t> entries;
    std::transform(ordered.begin(), ordered.end(), std::back_inserter(entries),
                   [](const auto &listed) { return listed.second; });
    return cut(std::move(entries), 1, operation.value);
}

/// As predict, of a module that has been started.
Answer predict_started(State &state, const Operation &operation, const Surroundings &sdk)
{
    const auto bridge = [&](bool internal) { return find_bridge(state, operation.bridge, internal); };
    switch (operation.kind) {
    case Kind::start:
        return {};
    case Kind::stop:
        state = {};
        return {};
    case Kind::create:
        return operation.null ? Answer{KY_STATUS_PARAM_ERROR} : create(state, operation.flag);
    case Kind::destroy:
        return {operation.null ? ky_status_t{KY_STATUS_PARAM_ERROR} : destroy(state, operation.bridge, operation.flag)};
    case Kind::reference:
    case Kind::unreference:
        return {reference(state, operation, operation.kind == Kind::reference)};
    case Kind::add:
        return {add(state, operation, sdk)};
    case Kind::remove:
        return {remove(state, operation, sdk)};
    case Kind::remove_port:
    case Kind::clear:
        return {clear(state, operation, sdk)};
    case Kind::announce:
        return {state.is_1d() && sdk.serves(static_cast<std::uint8_t>(operation.value))
                    ? announce(state, operation.port, operation.value, sdk)
                    : ky_status_t{KY_STATUS_SUCCESS}};
    case Kind::withdraw:
        return {};
    case Kind::restore:
        return {state.is_1d() ? announce(state, operation.port, static_cast<std::uint8_t>(operation.value), sdk)
                              : ky_status_t{KY_STATUS_SUCCESS}};
    case Kind::learn:
        if (bridge(operation.flag) == nullptr)
            return {KY_STATUS_ENTRY_NOT_FOUND};
        bridge(operation.flag)->learning = operation.value;
        return {};
    case Kind::bind:
        return bind(state, operation, sdk);
    case Kind::unbind:
        return {unbind(state, operation)};
    case Kind::port_list:
        return port_list(state, operation);
    case Kind::int_vlan: {
        const Bridge *const found = bridge(operation.flag);
        return ask(operation, KY_STATUS_PARAM_ERROR, found, found != nullptr ? found->int_vlan : 0);
    }
    case Kind::int_vlan_list:
        return int_vlan_list(state, operation);
    case Kind::int_vlan_owner: {
        const auto owner = std::find_if(state.bridges.begin(), state.bridges.end(),
                                        [&](const auto &each) { return each.second.int_vlan == operation.vlan; });
        const bool found = owner != state.bridges.end();
        return ask(operation, KY_STATUS_PARAM_ERROR, found ? &owner->second : nullptr, found ? owner->first : 0);
    }
    case Kind::member_state: {
        const auto port = state.ports.find(operation.port);
        const bool is_member = port != state.ports.end() && port->second.egress_uses != 0;
        return {is_member ? ky_status_t{KY_STATUS_SUCCESS} : ky_status_t{KY_STATUS_ENTRY_NOT_FOUND}};
    }
    case Kind::group: {
        const Bridge *const found = bridge(false);
        const bool has_group = found != nullptr && found->group != KY_VLAN_GROUP_NONE;
        return ask(operation, KY_STATUS_PARAM_ERROR, has_group ? found : nullptr, has_group ? found->group : 0);
    }
    case Kind::port_acls: {
        const auto port = state.ports.find(operation.port);
        if (!state.is_1d() || port == state.ports.end())
            return {state.is_1d() ? ky_status_t{KY_STATUS_ENTRY_NOT_FOUND} : ky_status_t{KY_STATUS_UNSUPPORTED}};
        if (operation.null)
            return {KY_STATUS_SUCCESS};
        return {KY_STATUS_SUCCESS,
                {sdk.acls[KY_ACL_DIRECTION_INGRESS],
                 port->second.egress_uses == 0 ? std::uint32_t{KY_ACL_ID_NONE} : sdk.acls[KY_ACL_DIRECTION_EGRESS]}};
    }
    case Kind::learning: {
        const Bridge *const found = bridge(operation.flag);
        return ask(operation, KY_STATUS_PARAM_NULL, found, found != nullptr ? found->learning : 0);
    }
    case Kind::mode:
        return operation.null ? Answer{KY_STATUS_PARAM_NULL} : Answer{KY_STATUS_SUCCESS, {*state.mode}};
    }
    return {};
}

/// As predict, of a module that has not been started: nothing is done, and few pointers are looked at.
Answer predict_stopped(State &state, const Operation &operation, const Surroundings &sdk)
{
    switch (operation.kind) {
    case Kind::start:
        return {start(state, operation, sdk)};
    case Kind::int_vlan_list:
    case Kind::learning:
        return {operation.null ? ky_status_t{KY_STATUS_PARAM_NULL} : ky_status_t{KY_STATUS_SUCCESS}};
    case Kind::mode:
        return operation.null ? Answer{KY_STATUS_PARAM_NULL} : Answer{KY_STATUS_SUCCESS, {KY_BRIDGE_SDK_MODE_802_1Q}};
    default:
        return {};
    }
}

/// Numbers of the first free records of a pool, next first.
template <typename Record, typename Number>
std::vector<std::uint32_t> free_numbers(const kybridge::Pool<Record> &pool, Number number, std::size_t count)
{
    std::vector<std::uint32_t> numbers;
    const cl_qlist_t &list = pool.pool.qcpool.free_list;
    for (const cl_list_item_t *item = list.end.p_next; item != &list.end && numbers.size() < count; item = item->p_next)
        numbers.push_back(reinterpret_cast<const Record *>(item)->*number);
    return numbers;
}

} // namespace

std::string text(const State &state)
{
    if (!state.mode)
        return "not started\n";
    std::string lines;
    const auto to = std::back_inserter(lines);
    fmt::format_to(to, "mode {}, {} virtual ports, free bridges {}, VLANs {}\n", *state.mode, state.max_virtual_ports,
                   fmt::join(state.free_bridges, " "), fmt::join(state.free_vlans, " "));
    for (const auto &[bridge_id, bridge] : state.bridges) {
        fmt::format_to(to, "bridge {}: internal VLAN {}{}, {} references, bound {} {}, group {}, learning {}\n",
                       bridge_id, bridge.int_vlan, bridge.internal ? ", internal" : "", bridge.references,
                       bridge.bound[0], bridge.bound[1], bridge.group, bridge.learning);
        for (const auto &[port, virtual_port] : bridge.virtual_ports)
            fmt::format_to(to, "  port 0x{:X} vlan {} mode {}{}{}\n", port, virtual_port.vlan, virtual_port.mode,
                           virtual_port.has_ingress_rule ? "" : ", no ingress rule",
                           virtual_port.uses_egress_rule ? "" : ", no egress rule");
    }
    for (const auto &[number, port] : state.ports)
        fmt::format_to(to, "port 0x{:X}: SWID {}, {} egress uses, VLAN uses {}\n", number, port.swid, port.egress_uses,
                       port.vlan_uses);
    return lines;
}

State read_state(const bridge_db_t *db)
{
    State state;
    if (db == nullptr)
        return state;
    state.mode = db->sdk_mode;
    if (!state.is_1d())
        return state;
    state.max_virtual_ports = db->max_virtual_ports_num;
    for_each(db->bridge_map, [&](const bridge_db_bridge_t &record) {
        Bridge &bridge = state.bridges[record.bridge_id];
        bridge = {.int_vlan = record.int_vlan,
                  .internal = record.is_internal != 0,
                  .references = record.ref_cnt,
                  .bound = {record.acl_bound[0] != 0, record.acl_bound[1] != 0},
                  .group = record.vlan_group,
                  .learning = record.learning_mode,
                  .virtual_ports = {}};
        for_each(record.virtual_port_map, [&](const bridge_db_virtual_port_t &attached) {
            bridge.virtual_ports[attached.log_port] = {attached.vlan, attached.egress_mode,
                                                       attached.ingress_offset != nullptr,
                                                       attached.egress_offset != nullptr};
        });
    });
    for_each(db->log_port_map, [&](const bridge_db_log_port_t &record) {
        Port &port = state.ports[record.log_port];
        port.swid = record.swid;
        port.egress_uses = record.eacl_bound_cnt;
        const std::uint8_t *const counters = record.vlan_ref_cnt;
        for (std::uint32_t first = 0; first + 1 < BRIDGE_DB_VLAN_REF_CNT_SIZE; first += sizeof(std::uint64_t)) {
            std::uint64_t several = 0; // most are 0, and looking at each would take up most of a test's time
            std::memcpy(&several, counters + first, sizeof several);
            for (std::uint32_t vlan = first; several != 0 && vlan < first + sizeof several; ++vlan)
                if (counters[vlan] != 0)
                    port.vlan_uses[vlan] = counters[vlan];
        }
    });
    const std::size_t free_bridges = db->max_bridge_num - state.bridges.size();
    state.free_bridges = free_numbers(db->bridge_pool, &bridge_db_bridge_t::bridge_id, free_bridges);
    state.free_vlans = free_numbers(db->int_vlan_pool, &bridge_db_int_vlan_t::int_vlan_id, free_bridges);
    return state;
}

Answer predict(State &state, const Operation &operation, const Surroundings &sdk)
{
    return state.mode ? predict_started(state, operation, sdk) : predict_stopped(state, operation, sdk);
}

} // namespace operations
