#include "conform/model/database.h"

#include <algorithm>
#include <array>
#include <set>

namespace consistency {

namespace {

/// Records of a pool on its free list; 0 for a pool that could not be built.
template <typename Record> std::size_t free_count(const kybridge::Pool<Record> &pool)
{
    return pool.is_built() ? pool.pool.qcpool.free_list.count : 0;
}

std::size_t capacity(const cl_qpool_t &pool)
{
    return pool.qcpool.num_objects;
}

} // namespace

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

namespace {

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

} // namespace consistency
