// What people read: one call in words, and the hardware's state in words.
#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "record/words.h"
#include "sdk/sdk.h"

namespace sdk {

using record::egress_mode;
using record::port;
using record::rule;

std::string describe(const Call &call)
{
    return record::in_words(
        {name(call.service), call.arguments, call.sent, call.returned, call.result, call.status, call.planned});
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
    for (const auto &[acl_id, entry] : acl.acls)
        facts.push_back(fmt::format("ACL {}: {} on region {}", acl_id, name(entry.direction), entry.region_id));
    for (const auto &[bound, binding] : acl.bindings)
        facts.push_back(fmt::format("binding of {} {}: ACL {}", port(bound.first), name(bound.second), binding.acl_id));
    for (const auto &[group_id, group] : acl.vlan_groups)
        facts.push_back(fmt::format("VLAN group {}: {}", group_id, fmt::join(group.vlans, ", ")));
    for (const auto &[vlan, ports_of_vlan] : vlans.members()) {
        for (const auto &[log_port, membership] : ports_of_vlan)
            facts.push_back(fmt::format("vlan {}: {} {}", vlan, port(log_port), egress_mode(membership.mode)));
    }
    for (const auto &[log_port, entry] : ports.ports)
        facts.push_back(fmt::format("RSTP state of {}: {}", port(log_port), name(entry.rstp_state)));
    std::sort(facts.begin(), facts.end());
    std::string text;
    for (const std::string &fact : facts) {
        text += fact;
        text += '\n';
    }
    return text;
}

} // namespace sdk
