#include "host/screens/consistency.h"

#include <map>
#include <set>
#include <utility>

#include <fmt/format.h>

namespace consistency {
namespace {

// ---- The database and the hardware -------------------------------------------------------------------

/// How much of the hardware is compared.
enum class Extent {
    held,      ///< what the database holds stands there, whatever else does
    everything ///< each virtual port holds everything, with its learning mode, and nothing else stands there
};

/// A rule as it should be, or is, in a comparable form.
std::string rule_facts(std::uint32_t log_port, std::uint32_t port_mask, std::uint16_t vlan, std::uint16_t new_vlan,
                       bool dont_learn)
{
    return fmt::format("port 0x{:08X}/0x{:08X} vlan {} -> vlan {}{}", log_port, port_mask, vlan, new_vlan,
                       dont_learn ? ", don't learn" : "");
}

void compare_rules(Findings &findings, const char *which, const std::map<std::uint16_t, std::string> &expected,
                   const sdk::Device &device, std::uint32_t region_id, Extent extent)
{
    std::map<std::uint16_t, std::string> actual;
    const auto region = device.acl.regions.find(region_id);
    findings.expect(region != device.acl.regions.end(), "the {} region {} does not exist", which, region_id);
    if (region == device.acl.regions.end())
        return;
    for (const auto &[offset, rule] : region->second.rules)
        actual[offset] = rule_facts(rule.key_log_port, rule.log_port_mask, rule.key_vlan, rule.new_vlan,
                                    extent == Extent::everything && rule.dont_learn) +
                         (rule.vlan_mask == 0xFFFF ? "" : ", VLAN masked");

    for (const auto &[offset, text] : expected) {
        const auto found = actual.find(offset);
        findings.expect(found != actual.end(), "{} rule {} is missing: {}", which, offset, text);
        if (found != actual.end())
            findings.expect(found->second == text, "{} rule {} is {} but should be {}", which, offset, found->second,
                            text);
    }
    for (const auto &[offset, text] : actual)
        findings.expect(extent == Extent::held || expected.contains(offset), "{} rule {} belongs to nobody: {}", which,
                        offset, text);
}

void check_rules(Findings &findings, const bridge_db_t &db, const sdk::Device &device, Extent extent)
{
    std::map<std::uint16_t, std::string> ingress;
    std::map<std::uint16_t, std::string> egress;
    for_each(db.bridge_map, [&](const bridge_db_bridge_t &bridge) {
        const bool dont_learn = extent == Extent::everything && bridge.learning_mode == KY_FDB_LEARN_MODE_DONT_LEARN;
        for_each(bridge.virtual_port_map, [&](const bridge_db_virtual_port_t &vport) {
            const bool holds_all = vport.ingress_offset != nullptr && vport.egress_offset != nullptr &&
                                   vport.holds_eacl_binding && vport.holds_vlans;
            findings.expect(extent == Extent::held || holds_all,
                            "virtual port (0x{:08X}, {}) is not attached completely", vport.log_port, vport.vlan);
            if (vport.ingress_offset != nullptr)
                ingress[vport.ingress_offset->offset] =
                    rule_facts(vport.log_port, 0xFFFFFFFF, vport.vlan, bridge.int_vlan, dont_learn);
            if (bridge.egress_offset != nullptr)
                egress[bridge.egress_offset->offset] = rule_facts(0, 0, bridge.int_vlan, vport.vlan, dont_learn);
        });
    });
    compare_rules(findings, "ingress", ingress, device, db.ingress_region.region_id, extent);
    compare_rules(findings, "egress", egress, device, db.egress_region.region_id, extent);
}

void check_bindings(Findings &findings, const bridge_db_t &db, const sdk::Device &device, Extent extent)
{
    std::size_t expected = 0;
    for_each(db.log_port_map, [&](const bridge_db_log_port_t &port) {
        const auto expect_bound = [&](sdk::Direction direction, const bridge_acl_region_t &region) {
            ++expected;
            const auto binding = device.acl.bindings.find({port.log_port, direction});
            findings.expect(binding != device.acl.bindings.end() && binding->second.acl_id == region.acl_id,
                            "port 0x{:08X} is not bound to the {} ACL", port.log_port, sdk::name(direction));
        };
        if (port.eacl_region != nullptr)
            expect_bound(sdk::Direction::egress, *port.eacl_region);
        if (extent == Extent::held)
            return;
        expect_bound(sdk::Direction::ingress, db.ingress_region);
        findings.expect(port.eacl_region == nullptr || port.eacl_bound_cnt != 0,
                        "port 0x{:08X} is bound to the egress ACL without a use", port.log_port);
    });
    if (extent == Extent::held)
        return;
    std::size_t actual = 0;
    for (const auto &[key, binding] : device.acl.bindings)
        if (binding.acl_id == db.ingress_region.acl_id || binding.acl_id == db.egress_region.acl_id)
            ++actual;
    findings.expect(actual == expected, "{} ports and directions are bound to the module's ACLs, not {}", actual,
                    expected);
}

void check_vlans(Findings &findings, const bridge_db_t &db, const sdk::Device &device, Extent extent)
{
    const auto uses = vlan_uses(db);
    for (const auto &[port_vlan, count] : uses)
        findings.expect(device.vlans.find(port_vlan.first, port_vlan.second) != nullptr,
                        "port 0x{:08X} uses VLAN {} without being a member", port_vlan.first, port_vlan.second);
    if (extent == Extent::held)
        return;
    for (const auto &[vlan, members] : device.vlans.members())
        for (const auto &[log_port, membership] : members)
            findings.expect(membership.call == 0 || uses.contains({log_port, vlan}),
                            "port 0x{:08X} was left a member of VLAN {}", log_port, vlan);

    // A VLAN number that can be an internal one as well may have been joined by two virtual ports with
    // different modes, of which the last counts; above the internal ones each membership has one maker.
    for_each(db.bridge_map, [&](const bridge_db_bridge_t &bridge) {
        for_each(bridge.virtual_port_map, [&](const bridge_db_virtual_port_t &vport) {
            const sdk::Membership *const membership = device.vlans.find(vport.log_port, vport.vlan);
            findings.expect(membership == nullptr || vport.vlan <= db.max_bridge_num ||
                                membership->mode == vport.egress_mode,
                            "port 0x{:08X} is in VLAN {} with the wrong tagging", vport.log_port, vport.vlan);
        });
    });
}

void check_vlan_groups(Findings &findings, const bridge_db_t &db, const sdk::Device &device)
{
    std::size_t expected = 0;
    for_each(db.bridge_map, [&](const bridge_db_bridge_t &bridge) {
        if (bridge.vlan_group == KY_VLAN_GROUP_NONE)
            return;
        ++expected;
        findings.expect(bridge.acl_bound[0] != 0 || bridge.acl_bound[1] != 0,
                        "bridge {} keeps VLAN group {} though it is bound in no direction", bridge.bridge_id,
                        bridge.vlan_group);
        const auto group = device.acl.vlan_groups.find(bridge.vlan_group);
        findings.expect(group != device.acl.vlan_groups.end() &&
                            group->second.vlans == std::set<std::uint16_t>{bridge.int_vlan},
                        "VLAN group {} of bridge {} does not hold exactly VLAN {}", bridge.vlan_group, bridge.bridge_id,
                        bridge.int_vlan);
    });
    findings.expect(device.acl.vlan_groups.size() == expected, "there are {} VLAN groups for {} bridges with one",
                    device.acl.vlan_groups.size(), expected);
}

} // namespace

std::vector<std::string> check_held(const bridge_db_t *db, const sdk::Device &device)
{
    Findings findings;
    if (is_running(db)) {
        check_rules(findings, *db, device, Extent::held);
        check_bindings(findings, *db, device, Extent::held);
        check_vlans(findings, *db, device, Extent::held);
    }
    return findings.take();
}

std::vector<std::string> check_hardware(const bridge_db_t *db, const sdk::Device &device)
{
    Findings findings;
    if (is_running(db)) {
        check_rules(findings, *db, device, Extent::everything);
        check_bindings(findings, *db, device, Extent::everything);
        check_vlans(findings, *db, device, Extent::everything);
        check_vlan_groups(findings, *db, device);
        findings.expect(device.memory.raw_outstanding.size() == db->log_port_map.count(),
                        "{} raw blocks are outstanding for {} logical ports", device.memory.raw_outstanding.size(),
                        db->log_port_map.count());
    }
    return findings.take();
}

} // namespace consistency
