#include "host/screens/consistency.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>

#include <fmt/format.h>

namespace consistency {
namespace {

using PortVlan = std::pair<std::uint32_t, std::uint16_t>;

/// Collects what does not hold.
class Findings {
public:
    template <typename... Args> void expect(bool holds, fmt::format_string<Args...> text, Args &&...args)
    {
        if (!holds)
            texts_.push_back(fmt::format(text, std::forward<Args>(args)...));
    }
    std::vector<std::string> take() { return std::move(texts_); }

private:
    std::vector<std::string> texts_;
};

bool is_running(const bridge_db_t *db)
{
    return db != nullptr && db->sdk_mode == KY_BRIDGE_SDK_MODE_802_1D;
}

template <typename Map, typename Visit> void for_each(const Map &map, Visit visit)
{
    for (auto *record = map.first(); record != nullptr; record = map.next(record))
        visit(*record);
}

/// Records of a pool on its free list; 0 for a pool that could not be built.
template <typename Record> std::size_t free_count(const kybridge::Pool<Record> &pool)
{
    return pool.is_built() ? pool.pool.qcpool.free_list.count : 0;
}

std::size_t capacity(const cl_qpool_t &pool)
{
    return pool.qcpool.num_objects;
}

/// Counts the uses of VLANs on ports that virtual ports hold: one of the own, one of the internal VLAN.
std::map<PortVlan, unsigned> vlan_uses(const bridge_db_t &db)
{
    std::map<PortVlan, unsigned> uses;
    for_each(db.bridge_map, [&](const bridge_db_bridge_t &bridge) {
        for_each(bridge.virtual_port_map, [&](const bridge_db_virtual_port_t &vport) {
            if (!vport.holds_vlans)
                return;
            ++uses[{vport.log_port, vport.vlan}];
            ++uses[{vport.log_port, bridge.int_vlan}];
        });
    });
    return uses;
}

// ---- The database alone ------------------------------------------------------------------------------

void check_pools(Findings &findings, const bridge_db_t &db)
{
    std::size_t virtual_ports = 0;
    std::set<const bridge_acl_offset_t *> ingress_held;
    std::set<const bridge_acl_offset_t *> egress_held;
    for_each(db.bridge_map, [&](const bridge_db_bridge_t &bridge) {
        virtual_ports += bridge.virtual_port_map.count();
        if (bridge.egress_offset != nullptr)
            findings.expect(egress_held.insert(bridge.egress_offset).second, "egress offset {} is held twice",
                            bridge.egress_offset->offset);
        for_each(bridge.virtual_port_map, [&](const bridge_db_virtual_port_t &vport) {
            if (vport.ingress_offset != nullptr)
                findings.expect(ingress_held.insert(vport.ingress_offset).second, "ingress offset {} is held twice",
                                vport.ingress_offset->offset);
        });
    });
    const auto expect_accounted = [&](const char *what, std::size_t free, std::size_t used, std::size_t all) {
        findings.expect(free + used == all, "{}: {} free and {} in use are not {}", what, free, used, all);
    };
    expect_accounted("bridges", free_count(db.bridge_pool), db.bridge_map.count(), capacity(db.bridge_pool.pool));
    expect_accounted("virtual ports", free_count(db.virtual_port_pool), virtual_ports,
                     capacity(db.virtual_port_pool.pool));
    expect_accounted("internal VLANs", free_count(db.int_vlan_pool), db.int_vlan_map.count(),
                     capacity(db.int_vlan_pool.pool));
    expect_accounted("logical ports", free_count(db.log_port_pool), db.log_port_map.count(),
                     capacity(db.log_port_pool.pool));
    expect_accounted("ingress offsets", free_count(db.ingress_region.offset_pool), ingress_held.size(),
                     capacity(db.ingress_region.offset_pool.pool));
    expect_accounted("egress offsets", free_count(db.egress_region.offset_pool), egress_held.size(),
                     capacity(db.egress_region.offset_pool.pool));
    findings.expect(db.int_vlan_map.count() == db.bridge_map.count(), "{} bridges own {} internal VLANs",
                    db.bridge_map.count(), db.int_vlan_map.count());
}

void check_bridge(Findings &findings, const bridge_db_t &db, const bridge_db_bridge_t &bridge)
{
    const bridge_db_int_vlan_t *const int_vlan = db.int_vlan_map.find(bridge.int_vlan);
    findings.expect(int_vlan != nullptr && int_vlan->bridge_id == bridge.bridge_id,
                    "bridge {} does not own its internal VLAN {}", bridge.bridge_id, bridge.int_vlan);

    std::uint32_t egress_users = 0;
    const bridge_db_virtual_port_t *const first = bridge.virtual_port_map.first();
    for_each(bridge.virtual_port_map, [&](const bridge_db_virtual_port_t &vport) {
        const auto where =
            fmt::format("virtual port (0x{:08X}, {}) of bridge {}", vport.log_port, vport.vlan, bridge.bridge_id);
        findings.expect(vport.bridge_id == bridge.bridge_id, "{} names bridge {}", where, vport.bridge_id);
        findings.expect(vport.bridge_map_item.key == vport.log_port, "{} stands under another port's key", where);
        findings.expect(vport.vlan == first->vlan, "{} has another VLAN than its bridge's first", where);
        const bridge_db_log_port_t *const port = db.log_port_map.find(vport.log_port);
        findings.expect(port != nullptr && port->back_ref_map.find(vport.vlan) == &vport,
                        "{} is not among its logical port's", where);
        if (vport.egress_offset != nullptr) {
            ++egress_users;
            findings.expect(vport.egress_offset == bridge.egress_offset,
                            "{} uses another egress rule than its bridge's", where);
        }
    });
    findings.expect(bridge.egress_rule_ref_cnt == egress_users, "bridge {} counts {} users of its egress rule, not {}",
                    bridge.bridge_id, bridge.egress_rule_ref_cnt, egress_users);
    findings.expect((bridge.egress_offset != nullptr) == (bridge.egress_rule_ref_cnt != 0),
                    "bridge {} holds an egress offset for {} users", bridge.bridge_id, bridge.egress_rule_ref_cnt);
    findings.expect((bridge.acl_bound[0] == 0 && bridge.acl_bound[1] == 0) || bridge.vlan_group != KY_VLAN_GROUP_NONE,
                    "bridge {} is bound without a VLAN group", bridge.bridge_id);
}

void check_log_port(Findings &findings, const bridge_db_t &db, const bridge_db_log_port_t &port)
{
    std::uint32_t binding_users = 0;
    for_each(port.back_ref_map, [&](const bridge_db_virtual_port_t &vport) {
        binding_users += vport.holds_eacl_binding ? 1 : 0;
        const bridge_db_bridge_t *const bridge = db.bridge_map.find(vport.bridge_id);
        findings.expect(vport.log_port == port.log_port && bridge != nullptr &&
                            bridge->virtual_port_map.find(vport.log_port) == &vport,
                        "port 0x{:08X} refers to a virtual port on VLAN {} that no bridge has", port.log_port,
                        vport.vlan);
    });
    findings.expect(port.eacl_bound_cnt == binding_users, "port 0x{:08X} counts {} uses of its egress binding, not {}",
                    port.log_port, port.eacl_bound_cnt, binding_users);
    findings.expect(port.eacl_region != nullptr || port.eacl_bound_cnt == 0,
                    "port 0x{:08X} names no egress region for {} uses of it", port.log_port, port.eacl_bound_cnt);
    findings.expect(port.vlan_ref_cnt != nullptr, "port 0x{:08X} has no VLAN counters", port.log_port);
}

void check_vlan_counters(Findings &findings, const bridge_db_t &db)
{
    const auto uses = vlan_uses(db);
    for_each(db.log_port_map, [&](const bridge_db_log_port_t &port) {
        std::array<std::uint8_t, BRIDGE_DB_VLAN_REF_CNT_SIZE> expected = {};
        for (auto use = uses.lower_bound({port.log_port, 0}); use != uses.end() && use->first.first == port.log_port;
             ++use)
            expected[use->first.second] = static_cast<std::uint8_t>(use->second);
        if (std::equal(expected.begin(), expected.end(), port.vlan_ref_cnt)) // nearly always, and quickly seen
            return;
        for (unsigned vlan = 0; vlan < BRIDGE_DB_VLAN_REF_CNT_SIZE; ++vlan)
            findings.expect(port.vlan_ref_cnt[vlan] == expected[vlan],
                            "port 0x{:08X} counts {} uses of VLAN {}, not {}", port.log_port, port.vlan_ref_cnt[vlan],
                            vlan, expected[vlan]);
    });
}

// ---- The database and the hardware -------------------------------------------------------------------

/// How much of the hardware is compared.
enum class Extent {
    held,      ///< what the database holds stands there, whatever else does
    everything ///< each virtual port holds everything, with its learning mode, and nothing else stands there
};

/// A rule as it should be, or is, in a comparable form.
std::string rule_text(std::uint32_t log_port, std::uint32_t port_mask, std::uint16_t vlan, std::uint16_t new_vlan,
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
        actual[offset] = rule_text(rule.key_log_port, rule.log_port_mask, rule.key_vlan, rule.new_vlan,
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
                    rule_text(vport.log_port, 0xFFFFFFFF, vport.vlan, bridge.int_vlan, dont_learn);
            if (bridge.egress_offset != nullptr)
                egress[bridge.egress_offset->offset] = rule_text(0, 0, bridge.int_vlan, vport.vlan, dont_learn);
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

std::vector<std::string> check_database(const bridge_db_t *db)
{
    Findings findings;
    if (is_running(db)) {
        check_pools(findings, *db);
        for_each(db->bridge_map, [&](const bridge_db_bridge_t &bridge) { check_bridge(findings, *db, bridge); });
        for_each(db->log_port_map, [&](const bridge_db_log_port_t &port) { check_log_port(findings, *db, port); });
        check_vlan_counters(findings, *db);
    }
    return findings.take();
}

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
