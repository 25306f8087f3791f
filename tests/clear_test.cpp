// Clearing: a logical port out of all its bridges, released and restored, and everything at teardown.
#include <fmt/format.h>

#include "bridge/api.h"
#include "support/module_fixture.h"

namespace {

using sdk::Service;
using Lines = std::vector<std::string>;

class ClearTest : public ModuleTest {
protected:
    /// Port 0x10001 with VLAN 5 in the internal bridge 2, untagged, and VLAN 7 in bridge 1.
    void attach_twice()
    {
        ASSERT_EQ(start(), 0U);
        ASSERT_EQ(announce(port_a), 0U);
        ASSERT_EQ(create_bridge(), 1);
        ASSERT_EQ(create_bridge(1), 2);
        ASSERT_EQ(add(1, port_a, 7), 0U);
        ASSERT_EQ(add(2, port_a, 5, 1, 1), 0U);
        forget();
    }

    /// The calls since the last time that the module did not make inside another; forgets all calls.
    static Lines take_outer_calls()
    {
        Lines calls;
        for (const sdk::Call &call : sdk::device().journal.calls())
            if (call.depth == 0)
                calls.push_back(describe(call));
        sdk::device().journal.clear();
        return calls;
    }

    static bool is_bound(std::uint32_t log_port)
    {
        return sdk::device().acl.bindings.contains({log_port, sdk::Direction::ingress});
    }
};

const std::string delete_vlan_5 = "bridge_port_set DELETE bridge 2 port 0x00010001 vlan 5 untagged is_internal 1";
const std::string delete_vlan_7 = "bridge_port_set DELETE bridge 1 port 0x00010001 vlan 7 tagged is_internal 1";
const std::string read_ingress = "acl_bind_port_get GET port 0x00010001 ingress: ACL 1";
const std::string unbind_ingress = "acl_unbind_port UNBIND port 0x00010001 ingress from ACL 1";

// A released port that left anything behind would be found, or found bound, when it comes back.
TEST_F(ClearTest, AReleasedPortIsForgottenAndCanBeRestored)
{
    attach_twice();
    EXPECT_EQ(ky_bridge_clear_port(port_a, 1), 0U);
    EXPECT_EQ(take_outer_calls(),
              (Lines{delete_vlan_5, delete_vlan_7, read_ingress, unbind_ingress, "cl_free 4097 bytes"}));
    EXPECT_EQ(port_record(port_a), nullptr);
    EXPECT_TRUE(device.acl.bindings.empty());
    expect_consistent();

    EXPECT_EQ(ky_bridge_clear_undo(port_a, 3), 0U);
    EXPECT_EQ(take_outer_calls(),
              (Lines{"cl_malloc 4097 bytes", "acl_bind_port BIND port 0x00010001 ingress to ACL 1"}));
    EXPECT_EQ(port_record(port_a)->swid, 3);
    expect_consistent(); // the counters, all 0, too
}

// Clearing without release is for a port that stays: its record and ingress binding must survive.
TEST_F(ClearTest, DeletePortEmptiesThePortLowestVlanFirst)
{
    attach_twice();
    EXPECT_EQ(ky_bridge_port_set(KY_ACCESS_CMD_DELETE_PORT, 99, port_a, 4095, 9, 0), 0U);
    EXPECT_EQ(take_outer_calls(), (Lines{delete_vlan_5, delete_vlan_7}));
    EXPECT_TRUE(is_bound(port_a));
    EXPECT_EQ(device.acl.bindings.size(), 1U);
    expect_consistent();
    EXPECT_EQ(ky_bridge_clear_port(port_a, 0), 0U); // nothing is left to do
    EXPECT_EQ(take_services(), "");
}

TEST_F(ClearTest, AnUnknownPortIsNoError)
{
    ASSERT_EQ(start(), 0U);
    ky_bridge_log_verbosity_level_set(5);
    forget();
    EXPECT_EQ(ky_bridge_clear_port(port_a, 1), 0U);
    EXPECT_EQ(take_log(), Lines());
    EXPECT_EQ(ky_bridge_clear_port(port_a, 0), 0U);
    EXPECT_EQ(take_log(), Lines{"debug: ky_bridge_clear_port: __bridge_db_get_log_port failed when clearing "
                                "port(0x00010001).\n"});
}

// The loop trusts the SDK to delete. Refused, or answered without being done, it must end at once, with the
// port still known.
TEST_F(ClearTest, ARefusedDeletionEndsTheClear)
{
    const std::string failed = "Failed to retreive v_port from log_port.\n";
    attach_twice();
    const std::string before = device.snapshot();
    device.faults.fail(Service::bridge_port_set, 1, KY_STATUS_SUCCESS); // not done all the same
    EXPECT_EQ(ky_bridge_clear_port(port_a, 1), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(take_outer_calls(), Lines{delete_vlan_5 + " -> 0 (planned fault)"});
    EXPECT_EQ(take_log(), Lines{failed});
    EXPECT_EQ(device.snapshot(), before);

    device.faults.fail(Service::bridge_port_set, 2, KY_STATUS_RESOURCE_IN_USE);
    EXPECT_EQ(ky_bridge_port_set(KY_ACCESS_CMD_DELETE_PORT, 0, port_a, 0, 0, 0), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(take_outer_calls(), (Lines{delete_vlan_5, delete_vlan_7 + " -> 29 (planned fault)"}));
    EXPECT_EQ(take_log(), (Lines{failed, "ky_bridge_clear_port failed (Parameter Error).\n"}));
    EXPECT_EQ(bridge_record(2)->virtual_port_map.count(), 0U);
    EXPECT_EQ(bridge_record(1)->virtual_port_map.count(), 1U);
    expect_consistent();
}

// A record that went while the port is bound would leave a binding that nobody takes away any more.
TEST_F(ClearTest, APortIsForgottenOnlyOnceItIsUnbound)
{
    ASSERT_EQ(start(), 0U);
    ASSERT_EQ(announce(port_a), 0U);
    device.acl.bindings[{port_a, sdk::Direction::ingress}].acl_id = 77; // a user bound another ACL
    EXPECT_EQ(ky_bridge_clear_port(port_a, 1), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(take_log().back(), "__bridge_unbind_port_from_acl failed for port (0x00010001): Parameter Error\n");
    EXPECT_NE(port_record(port_a), nullptr);
    EXPECT_TRUE(is_bound(port_a));
    device.acl.bindings.erase({port_a, sdk::Direction::ingress}); // and took it away
    forget();
    EXPECT_EQ(ky_bridge_clear_port(port_a, 1), 0U);
    EXPECT_EQ(take_services(), "acl_bind_port_get cl_free");
    EXPECT_EQ(port_record(port_a), nullptr);
}

TEST_F(ClearTest, ARestoreThatIsRefusedLeavesOnePortRecordAtMost)
{
    sdk::set_limits(8, 1);
    ASSERT_EQ(start(), 0U);
    forget();
    device.ports.ports[port_a] = {};
    device.faults.fail(Service::acl_bind_port, 1, KY_STATUS_COMM_ERROR);
    EXPECT_EQ(ky_bridge_clear_undo(port_a, 0), KY_STATUS_COMM_ERROR);
    EXPECT_NE(port_record(port_a), nullptr); // the record stays
    EXPECT_EQ(ky_bridge_clear_undo(port_a, 0), KY_STATUS_ENTRY_ALREADY_EXISTS);
    EXPECT_EQ(ky_bridge_clear_undo(port_b, 0), KY_STATUS_NO_RESOURCES);
    EXPECT_EQ(take_log(), (Lines{"acl_bind_port to bind port [0x10001] to ACL(1) direction (0) failed.\n",
                                 "__bridge_bind_port_to_acl failed for port (0x00010001).\n",
                                 "__bridge_db_alloc_log_port failed for port (0x00010001).\n",
                                 "Could not find free log port entry in bridge_db.\n",
                                 "__bridge_db_alloc_log_port failed for port (0x00010002).\n"}));
}

// Ports ascending, then bridges ascending. What a refusal keeps attached is dropped from the database alone,
// with every offset, so that the pools are whole again.
TEST_F(ClearTest, EverythingIsClearedWhateverIsRefused)
{
    ASSERT_EQ(start(4, 2), 0U);
    ASSERT_EQ(announce(port_b) | announce(port_a), 0U);
    std::uint16_t group = 0;
    for (std::uint16_t id = 1; id <= 3; ++id)
        create_bridge(id == 2);
    ASSERT_EQ(add(1, port_b, 20) | add(1, port_a, 20), 0U);
    ASSERT_EQ(ky_bridge_ref_cnt_increase(2), 0U); // keeps a bridge from being destroyed, but not from this
    ASSERT_EQ(ky_bridge_int_vlan_group_set(KY_ACCESS_CMD_BIND, 3, 0, &group), 0U);
    forget();

    device.faults.fail(Service::bridge_port_set, 1, KY_STATUS_RESOURCE_IN_USE);
    EXPECT_EQ(__clear_all_bridges(), 0U);
    const std::string deletion = "bridge_port_set DELETE bridge 1 port 0x0001000{} vlan 20 tagged is_internal 1";
    EXPECT_EQ(take_outer_calls(),
              (Lines{fmt::format(fmt::runtime(deletion), 1) + " -> 29 (planned fault)",
                     fmt::format(fmt::runtime(deletion), 2), "acl_bind_port_get GET port 0x00010002 ingress: ACL 1",
                     "acl_unbind_port UNBIND port 0x00010002 ingress from ACL 1", "cl_free 4097 bytes"}));
    EXPECT_TRUE(bridge_db->bridge_map.is_empty());
    EXPECT_TRUE(bridge_db->int_vlan_map.is_empty());
    EXPECT_EQ(port_record(port_b), nullptr);
    EXPECT_NE(port_record(port_a), nullptr); // its clearing was refused

    // Both virtual ports and all rule offsets can be had again; the bridge freed last comes first.
    ASSERT_EQ(announce(port_b) | announce(port_c), 0U);
    EXPECT_EQ(create_bridge(), 3);
    EXPECT_EQ(add(3, port_b, 30) | add(3, port_c, 30), 0U);
    EXPECT_EQ(bridge_record(3)->egress_offset->offset, 1);
    EXPECT_EQ(create_bridge(), 2);
    EXPECT_EQ(create_bridge(), 1);
}

} // namespace
