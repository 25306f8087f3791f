// Screens of what the stand-in SDK holds: the hardware's tables, memory, planned faults, the journal.
#include "host/screens/screens.h"

#include <algorithm>
#include <tuple>

#include <fmt/format.h>

namespace host {

namespace {

using enum Table::Align;

/// The direction of the ACL on a region; nothing when none stands on it.
std::optional<sdk::Direction> direction_of(const sdk::AclManager &acls, std::uint32_t region_id)
{
    for (const auto &[acl_id, acl] : acls.acls)
        if (acl.region_id == region_id)
            return acl.direction;
    return std::nullopt;
}

std::string members_with(const Host &host, const std::map<std::uint32_t, sdk::Membership> &members, std::uint32_t mode)
{
    std::string list;
    for (const auto &[log_port, membership] : members)
        if (membership.mode == mode)
            list += (list.empty() ? "" : " ") + host.names.port(log_port);
    return list;
}

} // namespace

std::string bridge_of(const Host &host, std::uint16_t int_vlan)
{
    std::uint16_t bridge_id = 0;
    if (!host.module.is_started() || host.module.ky_bridge_int_vlan_bridge_id_get(int_vlan, &bridge_id) != 0)
        return "";
    return host.names.bridge(bridge_id);
}

Table rules_screen(const Host &host)
{
    const sdk::AclManager &acls = host.device.acl;
    Table table("rules", {{"DIRECTION"},
                          {"REGION", right},
                          {"OFFSET", right},
                          {"PORT"},
                          {"VLAN", right},
                          {"NEW VLAN", right},
                          {"LEARN"},
                          {"BRIDGE"}});
    std::string used;
    for (const auto &[region_id, region] : acls.regions) {
        const auto direction = direction_of(acls, region_id);
        if (!region.rules.empty())
            used += fmt::format("{}region {}: {} of {} used", used.empty() ? "" : ", ", region_id, region.rules.size(),
                                region.size);
        for (const auto &[offset, rule] : region.rules) {
            const std::uint16_t int_vlan = direction == sdk::Direction::egress ? rule.key_vlan : rule.new_vlan;
            table.add({direction ? std::string(sdk::name(*direction)) : "", fmt::to_string(region_id),
                       fmt::to_string(offset), rule.log_port_mask == 0 ? "any" : host.names.port(rule.key_log_port),
                       fmt::to_string(rule.key_vlan), fmt::to_string(rule.new_vlan), rule.dont_learn ? "no" : "yes",
                       bridge_of(host, int_vlan)});
        }
    }
    table.note(used);
    return table;
}

Table bindings_screen(const Host &host)
{
    Table table("port bindings", {{"PORT"}, {"DIRECTION"}, {"ACL", right}, {"REGION", right}});
    for (const auto &[bound, binding] : host.device.acl.bindings) {
        const auto acl = host.device.acl.acls.find(binding.acl_id);
        table.add({host.names.port(bound.first), std::string(sdk::name(bound.second)), fmt::to_string(binding.acl_id),
                   acl != host.device.acl.acls.end() ? fmt::to_string(acl->second.region_id) : ""});
    }
    return table;
}

Table vlans_screen(const Host &host)
{
    Table table("VLAN memberships", {{"VLAN", right}, {"INTERNAL VLAN OF"}, {"TAGGED"}, {"UNTAGGED"}});
    for (const auto &[vlan, members] : host.device.vlans.members())
        table.add({fmt::to_string(vlan), bridge_of(host, vlan), members_with(host, members, KY_EGRESS_MODE_TAGGED),
                   members_with(host, members, KY_EGRESS_MODE_UNTAGGED)});
    return table;
}

Table rstp_screen(const Host &host)
{
    Table table("RSTP states", {{"PORT"}, {"STATE"}, {"SWID", right}, {"SWID'S MODE"}, {"LAST SET BY CALL", right}});
    for (const auto &[log_port, port] : host.device.ports.ports) {
        const auto mode = host.device.mstp_modes.find(port.swid);
        table.add({host.names.port(log_port), std::string(sdk::name(port.rstp_state)), fmt::to_string(port.swid),
                   name_of(stp_mode_names(), mode != host.device.mstp_modes.end() ? mode->second : +KY_MSTP_MODE_RSTP),
                   port.rstp_call != 0 ? fmt::to_string(port.rstp_call) : ""});
    }
    return table;
}

Table memory_screen(const Host &host)
{
    std::map<std::tuple<std::string, std::string, std::size_t>, std::size_t> blocks; // how many there are of each
    for (const auto &[address, block] : host.device.memory.outstanding)
        ++blocks[{"utils_clr_memory_get", fmt::to_string(block.tag), block.size}];
    for (const auto &[address, size] : host.device.memory.raw_outstanding)
        ++blocks[{"cl_malloc", "", size}];

    Table table("memory outstanding", {{"OBTAINED BY"}, {"TAG", right}, {"BLOCKS", right}, {"BYTES EACH", right}});
    for (const auto &[block, count] : blocks) {
        const auto &[service, tag, size] = block;
        table.add({service, tag, fmt::to_string(count), fmt::to_string(size)});
    }
    return table;
}

Table faults_screen(const Host &host)
{
    Table table("planned faults", {{"SERVICE"}, {"CALL FROM NOW", right}, {"ANSWER"}});
    for (const sdk::Faults::Planned &fault : host.device.faults.planned())
        table.add({fault.service ? std::string(sdk::name(*fault.service)) : "any", fmt::to_string(fault.remaining),
                   numbered_status(fault.status)});
    return table;
}

Table journal_screen(const Host &host, std::size_t last)
{
    const auto &calls = host.device.journal.calls();
    const std::size_t shown = std::min(last, calls.size());
    Table table("journal", {{"CALL", right}, {"SERVICE"}});
    if (shown != 0)
        table.note(fmt::format("the last {} of {} calls", shown, host.device.journal.count()));
    for (auto call = calls.end() - static_cast<std::ptrdiff_t>(shown); call != calls.end(); ++call)
        table.add({fmt::to_string(call->number),
                   std::string(std::size_t{2} * call->depth, ' ') + host.names.in(sdk::describe(*call))});
    return table;
}

std::vector<std::string> facts(const Host &host)
{
    const Quiet quiet(host);
    std::vector<std::string> facts;
    const std::string hardware = host.device.snapshot();
    for (std::size_t at = 0; at < hardware.size();) {
        const std::size_t end = hardware.find('\n', at);
        facts.push_back("hardware: " + host.names.in(hardware.substr(at, end - at)));
        at = end + 1;
    }
    for (const Table &table : {bridges_screen(host), vports_screen(host, std::nullopt), ports_screen(host)})
        for (std::string &fact : table.facts())
            facts.push_back(std::move(fact));
    std::ranges::sort(facts);
    return facts;
}

} // namespace host
