#include "record/words.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "record/names.h"

namespace record {

namespace {

/// The number's name, or the number behind what it is.
std::string name_or_number(const NamedNumbers &names, std::uint64_t number, std::string_view what)
{
    if (number <= UINT32_MAX)
        if (const auto found = std::ranges::find(names, number, &NamedNumber::number); found != names.end())
            return found->name;
    return fmt::format("{} {}", what, number);
}

std::string direction(std::uint64_t number)
{
    return name_or_number(direction_names(), number, "direction");
}

std::string rstp_state(std::uint64_t state)
{
    return name_or_number(rstp_names(), state, "state");
}

/// The record of a call, as it was after the call. All bytes are 0 where the call brought less.
template <typename Record> Record record_of(const ServiceCall &call)
{
    Record record{};
    std::copy_n(call.returned.begin(), std::min(call.returned.size(), sizeof record),
                reinterpret_cast<std::uint8_t *>(&record));
    return record;
}

std::uint64_t argument(const ServiceCall &call, std::size_t index)
{
    return index < call.arguments.size() ? call.arguments[index] : 0;
}

// Each of these words one kind of call without its service and status. What a call answered is left out
// where it failed.

std::string region_call(const ServiceCall &call)
{
    const auto record = record_of<ky_acl_region_params_t>(call);
    if (record.cmd == KY_ACCESS_CMD_CREATE) {
        return call.status == 0 ? fmt::format("CREATE size {}: region {}", record.region_size, record.region_id)
                                : fmt::format("CREATE size {}", record.region_size);
    }
    return fmt::format("{} region {}, size {}", command(record.cmd), record.region_id, record.region_size);
}

std::string acl_call(const ServiceCall &call)
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

std::string rules_call(const ServiceCall &call)
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

std::string binding_call(const ServiceCall &call)
{
    const auto record = record_of<ky_acl_bind_params_t>(call);
    const std::string bound =
        fmt::format("{} {} {}", command(record.cmd), port(record.log_port), direction(record.direction));
    if (call.service == "acl_bind_port_get") {
        return call.status == 0 ? fmt::format("{}: ACL {}", bound, record.acl_id) : bound;
    }
    return fmt::format("{} {} ACL {}", bound, call.service == "acl_bind_port" ? "to" : "from", record.acl_id);
}

std::string group_call(const ServiceCall &call)
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

std::string vlan_call(const ServiceCall &call)
{
    std::string text = fmt::format("{} {}:", command(argument(call, 0)), port(argument(call, 1)));
    std::string_view separator = " ";
    for (std::size_t at = 0; at + sizeof(ky_vlan_entry_t) <= call.sent.size(); at += sizeof(ky_vlan_entry_t)) {
        ky_vlan_entry_t entry{};
        std::memcpy(&entry, call.sent.data() + at, sizeof entry);
        text += fmt::format("{}vlan {} {}", separator, entry.vlan, egress_mode(entry.mode));
        separator = ", ";
    }
    return text;
}

/// "GET port 0x00010001: SWID 0", the answer only where there is one.
std::string get_call(const ServiceCall &call, const std::string &of, const std::string &answer)
{
    const std::string asked = fmt::format("{} {}", command(argument(call, 0)), of);
    return call.status == 0 && !call.planned ? fmt::format("{}: {}", asked, answer) : asked;
}

std::string get_of_port_call(const ServiceCall &call, const std::string &answer)
{
    return get_call(call, port(argument(call, 1)), answer);
}

std::string get_of_swid_call(const ServiceCall &call, const std::string &answer)
{
    return get_call(call, fmt::format("SWID {}", argument(call, 1)), answer);
}

std::string bridge_port_set_call(const ServiceCall &call)
{
    return fmt::format("{} bridge {} {} vlan {} {} is_internal {}", command(argument(call, 0)), argument(call, 1),
                       port(argument(call, 2)), argument(call, 3), egress_mode(argument(call, 4)), argument(call, 5));
}

struct Wording {
    std::string_view service;
    std::string (*words)(const ServiceCall &call);
};

using Of = const ServiceCall &;

const Wording wordings[] = {
    {"acl_region_set", region_call},
    {"acl_set", acl_call},
    {"acl_rules_set", rules_call},
    {"acl_bind_port", binding_call},
    {"acl_bind_port_get", binding_call},
    {"acl_unbind_port", binding_call},
    {"acl_vlan_group_set", group_call},
    {"port_db_check_port_mode_router_port",
     [](Of call) {
         return fmt::format("{}: {}", port(argument(call, 0)), call.status == 0 ? "router port" : "no router port");
     }},
    {"port_swid_alloc_get", [](Of call) { return get_of_port_call(call, fmt::format("SWID {}", call.result)); }},
    {"port_lag_member_state_get",
     [](Of call) { return get_of_port_call(call, call.result != 0 ? "LAG member" : "no LAG member"); }},
    {"swid_validation", [](Of call) { return fmt::format("SWID {}", argument(call, 0)); }},
    {"bridge_port_set", bridge_port_set_call},
    {"vlan_port_multi_vlans_set", vlan_call},
    {"mstp_mode_get", [](Of call) { return get_of_swid_call(call, fmt::format("mode {}", call.result)); }},
    {"rstp_port_state_get", [](Of call) { return get_of_port_call(call, rstp_state(call.result)); }},
    {"rstp_port_state_set",
     [](Of call) {
         return fmt::format("{} {}: {}", command(argument(call, 0)), port(argument(call, 1)),
                            rstp_state(argument(call, 2)));
     }},
    {"adviser_register_event", [](Of call) { return fmt::format("event {}", argument(call, 1)); }},
    {"utils_clr_memory_get",
     [](Of call) {
         return fmt::format("{} x {} bytes, tag {}", argument(call, 0), argument(call, 1), argument(call, 2));
     }},
    {"utils_memory_put", [](Of call) { return fmt::format("{} bytes, tag {}", call.result, argument(call, 0)); }},
    {"cl_malloc", [](Of call) { return fmt::format("{} bytes", argument(call, 0)); }},
    {"cl_free", [](Of call) { return fmt::format("{} bytes", call.result); }},
};

} // namespace

std::string command(std::uint64_t cmd)
{
    return name_or_number(access_cmd_names(), cmd, "cmd");
}

std::string port(std::uint64_t log_port)
{
    return fmt::format("port 0x{:08X}", log_port);
}

std::string egress_mode(std::uint64_t mode)
{
    return name_or_number(tagging_names(), mode, "mode");
}

std::string rule(std::uint32_t key_log_port, std::uint32_t log_port_mask, std::uint16_t key_vlan,
                 std::uint16_t new_vlan, bool dont_learn)
{
    return fmt::format("{} vlan {} -> vlan {}, {}", log_port_mask == 0 ? "any port" : port(key_log_port), key_vlan,
                       new_vlan, dont_learn ? "don't learn" : "learn");
}

std::string in_words(const ServiceCall &call)
{
    const auto *const wording = std::ranges::find(wordings, call.service, &Wording::service);
    std::string text = fmt::format("{} {}", call.service, wording != std::end(wordings) ? wording->words(call) : "");
    if (call.status != 0 || call.planned)
        text += fmt::format(" -> {}", call.status);
    if (call.planned)
        text += " (planned fault)";
    return text;
}

} // namespace record
