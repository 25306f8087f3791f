// Bridges: their identifiers and internal VLANs, what keeps one from being destroyed, and the refresh of the
// ports' RSTP state that goes with both.
#include <fmt/format.h>

#include "support/module_fixture.h"

namespace {

using sdk::Service;
using Lines = std::vector<std::string>;

class BridgeTest : public ModuleTest {};

// Identifiers are the user's names for bridges, and none may inherit anything from the one that had it before.
TEST_F(BridgeTest, TheIdentifierFreedLastComesBackAsANewBridge)
{
    ASSERT_EQ(start(2), 0U);
    ASSERT_EQ(create_bridge(), 1);
    ASSERT_EQ(create_bridge(5), 2);
    ASSERT_EQ(ky_bridge_set_learning_mode(2, KY_FDB_LEARN_MODE_CONTROL_LEARN, 1), 0U);
    EXPECT_EQ(destroy_bridge(1) | destroy_bridge(2, 1), 0U);
    forget();
    EXPECT_EQ(create_bridge(), 2);
    const bridge_db_bridge_t *const bridge = bridge_record(2);
    EXPECT_EQ(bridge->int_vlan, 2);
    EXPECT_EQ(bridge->is_internal, 0U);
    EXPECT_EQ(bridge->learning_mode, std::uint32_t{KY_FDB_LEARN_MODE_DONT_LEARN});
    EXPECT_EQ(take_services(), ""); // without virtual ports the hardware has no part in it
    expect_consistent();
}

// More bridges than VLAN IDs: the bridge that gets no internal VLAN must go back.
TEST_F(BridgeTest, WithoutAnInternalVlanThereIsNoBridge)
{
    sdk::set_limits(4095, 4);
    ASSERT_EQ(start(4095), 0U);
    for (int id = 1; id <= KY_VLAN_ID_MAX; ++id)
        ASSERT_EQ(create_bridge(), id);
    forget();
    std::uint16_t untouched = 0;
    EXPECT_EQ(ky_bridge_set(KY_ACCESS_CMD_CREATE, &untouched, 0), KY_STATUS_NO_RESOURCES);
    EXPECT_EQ(untouched, 0);
    EXPECT_EQ(take_log(), Lines{"Could not find free internal vlan entry in bridge_db.\n"});
    expect_consistent();
    EXPECT_EQ(destroy_bridge(1000), 0U);
    EXPECT_EQ(create_bridge(), 1000); // pools stayed in step
    EXPECT_EQ(bridge_record(1000)->int_vlan, 1000);
}

TEST_F(BridgeTest, RequestsThatCannotBeMetAreRefusedInWords)
{
    ASSERT_EQ(start(), 0U);
    forget();
    std::uint16_t id = 1;
    EXPECT_EQ(ky_bridge_set(40, nullptr, 0), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(ky_bridge_set(KY_ACCESS_CMD_SET, &id, 0), KY_STATUS_CMD_UNSUPPORTED);
    EXPECT_EQ(ky_bridge_set(40, &id, 0), KY_STATUS_CMD_UNSUPPORTED);
    EXPECT_EQ(take_log(),
              (Lines{"bridge_id parameter is NULL.\n", "cmd unsupported (SET).\n", "cmd unsupported (UNKNOWN).\n"}));
}

// A bridge that went while something holds it would leave virtual ports, modules or ACLs on a VLAN that the
// next bridge gets. A count of references that wrapped below 0 would hold it for ever.
TEST_F(BridgeTest, ABridgeInUseIsNotDestroyed)
{
    ASSERT_EQ(start(), 0U);
    ASSERT_EQ(announce(port_a), 0U);
    const std::uint16_t id = create_bridge();
    std::uint16_t group = 0;
    ASSERT_EQ(add(id, port_a, 100), 0U);
    ASSERT_EQ(ky_bridge_ref_cnt_increase(id) | ky_bridge_ref_cnt_increase(id), 0U);
    ASSERT_EQ(ky_bridge_int_vlan_group_set(KY_ACCESS_CMD_BIND, id, 0, &group), 0U);
    const auto expect_refused = [&](const char *reason) {
        forget();
        EXPECT_EQ(destroy_bridge(id), KY_STATUS_RESOURCE_IN_USE);
        EXPECT_EQ(take_log(), (Lines{reason, "__bridge_verify_empty_bridge failed (Resource is in use).\n"}));
        EXPECT_EQ(take_services(), "");
        expect_consistent();
    };
    expect_refused("bridge (1) has virtual ports attached.\n");
    ASSERT_EQ(remove(id, port_a, 100), 0U);
    expect_refused("bridge (1) is in use.\n");
    ASSERT_EQ(ky_bridge_ref_cnt_decrease(id), 0U);
    expect_refused("bridge (1) is in use.\n");
    ASSERT_EQ(ky_bridge_ref_cnt_decrease(id), 0U);
    expect_refused("bridge (1) has vlan ACL attached.\n");
    ASSERT_EQ(ky_bridge_int_vlan_group_set(KY_ACCESS_CMD_UNBIND, id, 0, nullptr), 0U);
    EXPECT_EQ(destroy_bridge(id), 0U);

    const std::uint16_t internal = create_bridge(1); // references reach every bridge
    ky_bridge_log_verbosity_level_set(5);
    forget();
    EXPECT_EQ(ky_bridge_ref_cnt_decrease(internal), 0U);
    EXPECT_EQ(take_log(), Lines{"debug: ky_bridge_ref_cnt_decrease: bridge 1) ref count is already zero.\n"});
    EXPECT_EQ(destroy_bridge(internal, 1), 0U);
}

// A creation that fails must not hold a bridge that nobody was told of; a destruction cannot be taken back.
TEST_F(BridgeTest, ARefusedRstpRefreshUndoesACreationAndOnlyReportsADestruction)
{
    ASSERT_EQ(start(), 0U);
    ASSERT_EQ(announce(port_a), 0U);
    const std::uint16_t first = create_bridge();
    ASSERT_EQ(add(first, port_a, 100), 0U);
    forget();
    device.faults.fail(Service::mstp_mode_get, 1, KY_STATUS_COMM_ERROR);
    std::uint16_t id = 77;
    EXPECT_EQ(ky_bridge_set(KY_ACCESS_CMD_CREATE, &id, 0), KY_STATUS_COMM_ERROR);
    EXPECT_EQ(id, 77);
    EXPECT_EQ(take_log(), (Lines{"mstp_mode_get failed (Communication Error).\n",
                                 "__bridge_update_port_rstp_state failed (Communication Error).\n",
                                 "__bridge_add_to_rstp_state failed (Communication Error).\n"}));
    EXPECT_EQ(bridge_record(2), nullptr);
    expect_consistent();

    forget();
    ASSERT_EQ(create_bridge(), 2);
    EXPECT_EQ(take_services(), "mstp_mode_get rstp_port_state_get rstp_port_state_set");
    device.faults.fail(Service::rstp_port_state_set, 1, KY_STATUS_COMM_ERROR);
    EXPECT_EQ(destroy_bridge(2), KY_STATUS_COMM_ERROR);
    EXPECT_EQ(take_log().back(), "__bridge_remove_from_rstp_state failed (Communication Error).\n");
    EXPECT_EQ(bridge_record(2), nullptr);
    expect_consistent();
}

} // namespace
