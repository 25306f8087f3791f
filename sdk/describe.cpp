// What people read: one call in words, and the hardware's state in words.
#include "sdk/recorder.h"

#include <algorithm>

namespace sdk {

namespace {

std::string command(std::uint64_t cmd)
{
    switch (cmd) {
    case KY_ACCESS_CMD_ADD:
        return "ADD";
    case KY_ACCESS_CMD_DELETE:
        return "DELETE";
    case KY_ACCESS_CMD_CREATE:
        return "CREATE";
    case KY_ACCESS_CMD_DESTROY:
        return "DESTROY";
    case KY_ACCESS_CMD_SET:
        return "SET";
    case KY_ACCESS_CMD_GET:
        return "GET";
    case KY_ACCESS_CMD_BIND:
        return "BIND";
    case KY_ACCESS_CMD_UNBIND:
        return "UNBIND";
    case KY_ACCESS_CMD_DELETE_PORT:
        return "DELETE_PORT";
    default:
        return fmt::format("cmd {}", cmd);
    }
}

std::string port(std::uint64_t log_port)
{
    return fmt::format("port 0x{:08X}", log_port);
}

std::string direction(std::uint32_t number)
{
    return number <= KY_ACL_DIRECTION_EGRESS ? std::string(name(static_cast<Direction>(number)))
                                             : fmt::format("direction {}", number);
}

std::string egress_mode(std::uint64_t mode)
{
    switch (mode) {
    case KY_EGRESS_MODE_TAGGED:
        return "tagged";
    case KY_EGRESS_MODE_UNTAGGED:
        return "untagged";
    default:
        return fmt::format("mode {}", mode);
    }
}

std::string rstp_state(std::uint64_t state)
{
    return state <= static_cast<std::uint64_t>(RstpState::forwarding) ? std::string(name(static_cast<RstpState>(state)))
                                                                      : fmt::format("state {}", state);
}

std::string rule(std::uint32_t key_log_port, std::uint32_t log_port_mask, std::uint16_t key_vlan,
                 std::uint16_t new_vlan, bool dont_learn)
{
    return fmt::format("{} vlan {} -> vlan {}, {}", log_port_mask == 0 ? "any port" : port(key_log_port), key_vlan,
                       new_vlan, dont_learn ? "don't learn" : "learn");
}

/// The record of a call, as it was after the call. All bytes are 0 where the call brought less.
template <typename Record> Record record_of(const Call &call)
{
    Record record{};
    std::copy_n(call.returned.begin(), std::min(call.returned.size(), sizeof record),
                reinterpret_cast<std::uint8_t *>(&record));
    return record;
}

// Each of these words one kind of call without its service and status. What a call answered is left out
// where it failed.

std::string region_call(const Call &call)
{
    const auto record = record_of<ky_acl_region_params_t>(call);
    if (record.cmd == KY_ACCESS_CMD_CREATE) {
        return call.status == 0 ? fmt::format("CREATE size {}: region {}", record.region_size, record.region_id)
                                : fmt::format("CREATE size {}", record.region_size);
    }
    return fmt::format("{} region {}, size {}", command(record.cmd), record.region_id, record.region_size);
}

std::string acl_call(const Call &call)
{
    const auto record = record_of<ky_acl_params_t>(call);
    std::string text = command(record.cmd);
    if (record.cmd != KY_ACCESS_CMD_CREATE) {
        text += fmt::format(" ACL {}", record.acl_id);
    }
    text += fmt::format(" {} on region {}", direction(record.direction), record.region_id);
    if (record.cmd == KY_ACCESS_CMD_CREATE && call.status == 0) {
        text += fmt::format(": ACL {}", record.acl_id);
    }
    return text;
}

std::string rules_call(const Call &call)
{
    const auto record = record_of<ky_acl_rules_params_t>(call);
    std::string place = fmt::format("{} region {} offset {}", command(record.cmd), record.region_id, record.offset);
    if (record.cmd != KY_ACCESS_CMD_SET) {
        return place;
    }
    return fmt::format(
        "{}: {}", place,
        rule(record.key.log_port, record.mask.log_port, record.key.vlan, record.new_vlan, record.dont_learn != 0));
}

std::string binding_call(const Call &call)
{
    const auto record = record_of<ky_acl_bind_params_t>(call);
    const std::string bound =
        fmt::format("{} {} {}", command(record.cmd), port(record.log_port), direction(record.direction));
    if (call.service == Service::acl_bind_port_get) {
        return call.status == 0 ? fmt::format("{}: ACL {}", bound, record.acl_id) : bound;
    }
    return fmt::format("{} {} ACL {}", bound, call.service == Service::acl_bind_port ? "to" : "from", record.acl_id);
}

std::string group_call(const Call &call)
{
    struct {
        ky_acl_vlan_group_params_t header;
        std::uint16_t vlan;
    } record = {record_of<ky_acl_vlan_group_params_t>(call), 0};
    const std::size_t behind = sizeof record.header;
    if (call.returned.size() >= behind + sizeof record.vlan) {
        std::memcpy(&record.vlan, call.returned.data() + behind, sizeof record.vlan);
    }
    switch (record.header.cmd) {
    case KY_ACCESS_CMD_CREATE:
        return call.status == 0 ? fmt::format("CREATE: group {}", record.header.vlan_group) : "CREATE";
    case KY_ACCESS_CMD_DESTROY:
        return fmt::format("DESTROY group {}", record.header.vlan_group);
    default:
        return fmt::format("{} group {} vlan {}", command(record.header.cmd), record.header.vlan_group, record.vlan);
    }
}

std::string vlan_call(const Call &call, std::uint64_t cmd, std::uint64_t log_port)
{
    std::string text = fmt::format("{} {}:", command(cmd), port(log_port));
    std::string_view separator = " ";
    for (std::size_t at = 0; at + sizeof(ky_vlan_entry_t) <= call.sent.size(); at += sizeof(ky_vlan_entry_t)) {
        ky_vlan_entry_t entry{};
        std::memcpy(&entry, call.sent.data() + at, sizeof entry);
        text += fmt::format("{}vlan {} {}", separator, entry.vlan, egress_mode(entry.mode));
        separator = ", ";
    }
    return text;
}

std::string words(const Call &call)
{
    const auto argument = [&call](std::size_t index) {
        return index < call.arguments.size() ? call.arguments[index] : 0;
    };
    const auto get = [&](const std::string &of, const std::string &answer) {
        const std::string asked = fmt::format("{} {}", command(argument(0)), of);
        return call.status == 0 && !call.planned ? fmt::format("{}: {}", asked, answer) : asked;
    };
    switch (call.service) {
    case Service::acl_region_set:
        return region_call(call);
    case Service::acl_set:
        return acl_call(call);
    case Service::acl_rules_set:
        return rules_call(call);
    case Service::acl_bind_port:
    case Service::acl_bind_port_get:
    case Service::acl_unbind_port:
        return binding_call(call);
    case Service::acl_vlan_group_set:
        return group_call(call);
    case Service::port_db_check_port_mode_router_port:
        return fmt::format("{}: {}", port(argument(0)), call.status == 0 ? "router port" : "no router port");
    case Service::port_swid_alloc_get:
        return get(port(argument(1)), fmt::format("SWID {}", call.result));
    case Service::port_lag_member_state_get:
        return get(port(argument(1)), call.result != 0 ? "LAG member" : "no LAG member");
    case Service::swid_validation:
        return fmt::format("SWID {}", argument(0));
    case Service::bridge_port_set:
        return fmt::format("{} bridge {} {} vlan {} {} is_internal {}", command(argument(0)), argument(1),
                           port(argument(2)), argument(3), egress_mode(argument(4)), argument(5));
    case Service::vlan_port_multi_vlans_set:
        return vlan_call(call, argument(0), argument(1));
    case Service::mstp_mode_get:
        return get(fmt::format("SWID {}", argument(1)), fmt::format("mode {}", call.result));
    case Service::rstp_port_state_get:
        return get(port(argument(1)), rstp_state(call.result));
    case Service::rstp_port_state_set:
        return fmt::format("{} {}: {}", command(argument(0)), port(argument(1)), rstp_state(argument(2)));
    case Service::adviser_register_event:
        return fmt::format("event {}", argument(1));
    case Service::utils_clr_memory_get:
        return fmt::format("{} x {} bytes, tag {}", argument(0), argument(1), argument(2));
    case Service::utils_memory_put:
        return fmt::format("{} bytes, tag {}", call.result, argument(0));
    case Service::cl_malloc:
        return fmt::format("{} bytes", argument(0));
    case Service::cl_free:
        return fmt::format("{} bytes", call.result);
    }
    return {};
}

} // namespace

std::string describe(const Call &call)
{
    std::string text = fmt::format("{} {}", name(call.service), words(call));
    if (call.status != 0 || call.planned) {
        text += fmt::format(" -> {}", call.status);
    }
    if (call.planned) {
        text += " (planned fault)";
    }
    return text;
}

std::string Device::snapshot(bool with_offsets) const
{
    std::vector<std::string> facts;
    for (const auto &[region_id, region] : acl.regions) {
        facts.push_back(fmt::format("region {}: size {}", region_id, region.size));
        for (const auto &[offset, entry] : region.rules) {
            const std::string place = with_offsets ? fmt::format(" offset {}", offset) : std::string();
            facts.push_back(fmt::format(
                "rule in region {}{}: {}", region_id, place,
                rule(entry.key_log_port, entry.log_port_mask, entry.key_vlan, entry.new_vlan, entry.dont_learn)));
        }
    }
    for (const auto &[acl_id, entry] : acl.acls) {
        facts.push_back(fmt::format("ACL {}: {} on region {}", acl_id, name(entry.direction), entry.region_id));
    }
    for (const auto &[bound, binding] : acl.bindings) {
        facts.push_back(fmt::format("binding of {} {}: ACL {}", port(bound.first), name(bound.second), binding.acl_id));
    }
    for (const auto &[group_id, group] : acl.vlan_groups) {
        facts.push_back(fmt::format("VLAN group {}: {}", group_id, fmt::join(group.vlans, ", ")));
    }
    for (const auto &[vlan, ports_of_vlan] : vlans.members()) {
        for (const auto &[log_port, membership] : ports_of_vlan) {
            facts.push_back(fmt::format("vlan {}: {} {}", vlan, port(log_port), egress_mode(membership.mode)));
        }
    }
    for (const auto &[log_port, entry] : ports.ports) {
        facts.push_back(fmt::format("RSTP state of {}: {}", port(log_port), name(entry.rstp_state)));
    }
    std::sort(facts.begin(), facts.end());
    std::string text;
    for (const std::string &fact : facts) {
        text += fact;
        text += '\n';
    }
    return text;
}

} // namespace sdk
