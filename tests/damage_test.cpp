// A database that does not agree with itself, which only a fault of the process can bring about: every guard refuses
// with its status and its line, and what it refused is done when the damage is mended.
#include <tuple>

#include "bridge/acl.h"
#include "host/screens/consistency.h"
#include "support/module_fixture.h"

namespace {

using Lines = std::vector<std::string>;

class DamageTest : public ModuleTest {
protected:
    /// One bridge with one virtual port, in whose records the damage is done.
    void SetUp() override
    {
        ASSERT_EQ(start(), 0U);
        ASSERT_EQ(announce(port_a), 0U);
        ASSERT_EQ(announce(port_b), 0U);
        id = create_bridge();
        ASSERT_EQ(add(id, port_a, 100), 0U);
        bridge = bridge_db->bridge_map.find(id);
        vport = bridge->virtual_port_map.find(port_a);
        port = bridge_db->log_port_map.find(port_a);
        forget();
    }

    /// Does something when the module enters one of its functions, and keeps what follows: error lines, and the names
    /// of the functions that it enters.
    template <typename Damage> void on_entering(const std::string &function, Damage damage)
    {
        ky_bridge_log_verbosity_level_set(6);
        follows.clear();
        device.log = [this, function, damage, is_damaged = false](const sdk::LogLine &line) mutable {
            const std::size_t name = line.text.find("- ") + 2;
            const std::string entered =
                line.text.ends_with(": [\n") ? line.text.substr(name, line.text.find(':') - name) : "";
            if (is_damaged && line.severity == KY_LOG_ERROR)
                follows.push_back("error: " + line.text);
            else if (is_damaged && !entered.empty())
                follows.push_back(entered);
            else if (entered == function) {
                is_damaged = true;
                damage();
            }
        };
    }

    std::uint16_t id = 0;
    bridge_db_bridge_t *bridge = nullptr;
    bridge_db_virtual_port_t *vport = nullptr;
    bridge_db_log_port_t *port = nullptr;
    Lines follows;
};

TEST_F(DamageTest, MissingRecords)
{
    bridge_db->log_port_map.remove(port_a);
    EXPECT_EQ(remove(id, port_a, 100), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(__bridge_remove_egress_acl_rule(bridge, vport), KY_STATUS_ENTRY_NOT_FOUND);
    bridge_db->log_port_map.insert(port_a, port);
    EXPECT_EQ(take_lines(), (Lines{"error: __bridge_db_get_log_port failed (Entry Not Found).\n",
                                   "error: __bridge_db_get_log_port failed when removing eACL.\n"}));
    std::uint16_t vlans[4];
    std::uint32_t count = 4;
    vport->bridge_id = 7;
    EXPECT_EQ(__bridge_db_get_port_int_vlan_list(port_a, vlans, &count), KY_STATUS_ENTRY_NOT_FOUND);
    vport->bridge_id = id;
    ++bridge_db->int_vlan_map.map.count;
    count = 4;
    ky_bridge_log_verbosity_level_set(5);
    EXPECT_EQ(__bridge_db_get_int_vlan_list(vlans, &count), KY_STATUS_ERROR);
    ky_bridge_log_verbosity_level_set(3);
    --bridge_db->int_vlan_map.map.count;
    EXPECT_EQ(take_lines(), (Lines{"error: Could not find bridge_id(7) in bridge_db.\n",
                                   "debug: __bridge_db_get_int_vlan_list: Unable to get the list of int_vlans.\n"}));
    expect_consistent();
    ASSERT_EQ(remove(id, port_a, 100), 0U);
    bridge_db_int_vlan_t *const vlan = bridge_db->int_vlan_map.remove(bridge->int_vlan);
    forget();
    EXPECT_EQ(destroy_bridge(id), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(take_lines(), Lines{"error: __bridge_db_free_int_vlan failed (Entry Not Found).\n"});
    bridge_db->int_vlan_map.insert(bridge->int_vlan, vlan);
    EXPECT_EQ(destroy_bridge(id), 0U);
}

TEST_F(DamageTest, CountsAndPoolsThatRunOut)
{
    port->eacl_bound_cnt = 0;
    EXPECT_EQ(remove(id, port_a, 100), KY_STATUS_PARAM_ERROR);
    port->eacl_bound_cnt = 1;
    bridge->acl_bound[KY_ACL_DIRECTION_INGRESS] = 1; // without a group
    EXPECT_EQ(ky_bridge_int_vlan_group_set(KY_ACCESS_CMD_UNBIND, id, KY_ACL_DIRECTION_INGRESS, nullptr),
              KY_STATUS_ENTRY_NOT_FOUND);
    bridge->acl_bound[KY_ACL_DIRECTION_INGRESS] = 0;
    EXPECT_EQ(take_lines(), (Lines{"error: Trying to unbind port(0x00010001) from eACL bound count==0.\n",
                                   "error: __bridge_unbind_port_eacl failed when removing eACL.\n",
                                   "error: __bridge_remove_egress_acl_rule failed (Parameter Error).\n",
                                   "error: Bridge (1) is not bound.\n"}));
    for (bridge_acl_region_t *const region : {&bridge_db->ingress_region, &bridge_db->egress_region}) {
        const std::uint16_t other = create_bridge();
        std::vector<bridge_acl_offset_t *> taken;
        while (bridge_acl_offset_t *const offset = region->offset_pool.take())
            taken.push_back(offset);
        EXPECT_EQ(add(other, port_b, 200), KY_STATUS_NO_RESOURCES);
        EXPECT_EQ(take_lines().front(), "error: Could not find available_offset within ACL region.\n");
        for (bridge_acl_offset_t *const offset : taken)
            region->offset_pool.put(offset);
        EXPECT_EQ(add(other, port_b, 200), 0U);
        EXPECT_EQ(remove(other, port_b, 200), 0U);
    }
    expect_consistent();
}

// Only one way of writing egress rules is there.
TEST_F(DamageTest, AnotherModeOfBridges)
{
    bridge_db->multiple_vlan_bridge_mode = 1;
    EXPECT_EQ(add(create_bridge(), port_b, 200), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(remove(id, port_a, 100), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(__allocate_egress_regions(), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(__deallocate_egress_regions(), KY_STATUS_PARAM_ERROR);
    std::uint32_t acl = 0;
    EXPECT_EQ(ky_bridge_port_acl_binding_get(port_a, nullptr, &acl), 0U);
    EXPECT_EQ(acl, bridge_db->egress_region.acl_id);
    bridge_db->multiple_vlan_bridge_mode = KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS;
    EXPECT_EQ(take_lines().front(), "error: multiple_vlan_bridge mode is not supported.\n");
    EXPECT_EQ(bridge->egress_rule_ref_cnt, 1U);
    EXPECT_EQ(remove(id, port_a, 100), 0U);
    expect_consistent();
}

// Whoever still holds a record that was given back finds nothing in it.
TEST_F(DamageTest, FreedRecordsHoldNothing)
{
    vport->egress_mode = 1;
    ASSERT_EQ(remove(id, port_a, 100), 0U);
    EXPECT_EQ(std::tie(vport->bridge_id, vport->log_port, vport->vlan, vport->egress_mode), std::tuple(0, 0, 0, 0));
    EXPECT_EQ(std::tie(vport->ingress_offset, vport->egress_offset), std::tuple(nullptr, nullptr));

    port->swid = 1;
    port->eacl_bound_cnt = 1;
    port->eacl_region = &bridge_db->egress_region;
    EXPECT_EQ(__bridge_db_free_log_port(port_a), 0U);
    EXPECT_EQ(std::tie(port->log_port, port->swid, port->eacl_bound_cnt), std::tuple(0, 0, 0));
    EXPECT_EQ(std::tie(port->eacl_region, port->vlan_ref_cnt), std::tuple(nullptr, nullptr));

    bridge->ref_cnt = bridge->is_internal = bridge->egress_rule_ref_cnt = 1;
    bridge->acl_bound[KY_ACL_DIRECTION_INGRESS] = bridge->acl_bound[KY_ACL_DIRECTION_EGRESS] = 1;
    bridge->vlan_group = 1;
    EXPECT_EQ(__bridge_db_free_int_vlan(&bridge->int_vlan), 0U);
    EXPECT_EQ(__bridge_db_free_bridge(bridge), 0U);
    EXPECT_EQ(std::tie(bridge->int_vlan, bridge->ref_cnt, bridge->is_internal, bridge->egress_rule_ref_cnt),
              std::tuple(0, 0, 0, 0));
    EXPECT_EQ(bridge->acl_bound[KY_ACL_DIRECTION_INGRESS] + bridge->acl_bound[KY_ACL_DIRECTION_EGRESS], 0U);
    EXPECT_EQ(bridge->vlan_group, KY_VLAN_GROUP_NONE);
}

// What goes wrong behind steps that were done has them undone, in their order.
TEST_F(DamageTest, InTheMiddleOfAnOperation)
{
    const std::string before = device.snapshot(false);
    const Lines restoring = {"__bridge_create_or_update_ingress_acl_rule",
                             "__bridge_create_egress_acl_rule",
                             "__bridge_db_get_log_port",
                             "__bridge_create_homogenous_egress_acl_rule",
                             "__bridge_create_or_update_egress_acl_rule",
                             "__bridge_bind_port_eacl",
                             "__bridge_bind_port_to_acl",
                             "__bridge_vlan_enable"};
    const auto then_restoring = [&restoring](Lines lines) {
        lines.insert(lines.end(), restoring.begin(), restoring.end());
        return lines;
    };
    on_entering("__bridge_db_remove_virtual_port_to_log_port_back_ref", [this] { port->back_ref_map.remove(100); });
    EXPECT_EQ(remove(id, port_a, 100), KY_STATUS_PARAM_ERROR);
    port->back_ref_map.insert(100, vport);
    EXPECT_EQ(follows, then_restoring({"error: Failed to retreive v_port from log_port.\n",
                                       "error: __bridge_db_remove_virtual_port failed (Parameter Error).\n"}));
    EXPECT_EQ(device.snapshot(false), before);

    on_entering("__bridge_db_free_virtual_port", [this] { bridge->virtual_port_map.remove(port_a); });
    EXPECT_EQ(remove(id, port_a, 100), KY_STATUS_ENTRY_NOT_FOUND);
    bridge->virtual_port_map.insert(port_a, vport);
    EXPECT_EQ(follows, then_restoring({"error: Could not find port(0x10001) in bridge(1).\n",
                                       "error: __bridge_db_return_virtual_port failed (Entry Not Found).\n",
                                       "__bridge_db_add_virtual_port_to_log_port_back_ref", "__bridge_db_get_log_port",
                                       "__bridge_update_port_rstp_state"}));
    EXPECT_EQ(device.snapshot(false), before);
    expect_consistent();

    const std::uint16_t other = create_bridge();
    on_entering("__bridge_db_add_virtual_port_to_log_port_back_ref", [] { bridge_db->log_port_map.remove(port_a); });
    EXPECT_EQ(add(other, port_a, 200), KY_STATUS_ENTRY_NOT_FOUND);
    bridge_db->log_port_map.insert(port_a, port);
    port->eacl_bound_cnt = 1; // of a port that was not found no use can be given back
    EXPECT_EQ(follows, (Lines{"__bridge_db_get_log_port", "error: __bridge_db_get_log_port failed when adding eACL.\n",
                              "error: __bridge_db_add_virtual_port failed (Entry Not Found).\n",
                              "__bridge_remove_egress_acl_rule", "__bridge_db_get_log_port",
                              "error: __bridge_db_get_log_port failed when removing eACL.\n",
                              "__bridge_remove_ingress_acl_rule", "__bridge_db_free_virtual_port"}));
    EXPECT_EQ(consistency::check_database(bridge_db), Lines{}); // in the hardware its egress rule stays
}

} // namespace
