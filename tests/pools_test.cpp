// Pools of records that cannot be built whole or at all, which only a test can arrange, and that none is left over.
#include "support/module_fixture.h"
#include "support/pools.h"

namespace {

using Lines = std::vector<std::string>;

class PoolsTest : public ModuleTest {};

// Memory may be short for any one pool: what needs it is refused as when it is used up, the rest works on, and the
// stop gives back exactly what was built.
TEST_F(PoolsTest, APoolThatCouldNotBeBuiltIsAnExhaustedOne)
{
    const std::string texts[] = {"bridge", "virtual port", "internal vlan", "log port"};
    for (unsigned unbuilt = 0; unbuilt < std::size(texts); ++unbuilt) {
        pools::cut_short(unbuilt + 1);
        ASSERT_EQ(start(), 0U);
        EXPECT_EQ(pools::built(), 5U);
        forget();
        const ky_status_t announced = announce(port_a);
        std::uint16_t id = 0;
        const ky_status_t created = ky_bridge_set(KY_ACCESS_CMD_CREATE, &id, 0);
        const ky_status_t added = created == 0 ? add(id, port_a, 100) : 0;
        EXPECT_EQ(created, unbuilt == 0 || unbuilt == 2 ? std::uint32_t{KY_STATUS_NO_RESOURCES} : 0U);
        EXPECT_EQ(announced, unbuilt == 3 ? std::uint32_t{KY_STATUS_NO_RESOURCES} : 0U);
        EXPECT_EQ(added == 0, unbuilt != 1 && unbuilt != 3);
        EXPECT_EQ(take_lines().front(), "error: Could not find free " + texts[unbuilt] + " entry in bridge_db.\n");
        expect_consistent();
        EXPECT_EQ(ky_bridge_deinit(), 0U);
        EXPECT_EQ(pools::built(), 0U);
    }
}

// A pool of offsets that falls short ends the start, whether some of its records are there or none.
TEST_F(PoolsTest, AnOffsetPoolThatFallsShortEndsTheStart)
{
    const std::pair<unsigned, std::string> cases[] = {{5, "ingress"}, {6, "egress"}};
    for (const auto &[pool, region] : cases)
        for (const unsigned records : {0U, 4U}) {
            device.acl = {};
            pools::cut_short(pool, records);
            EXPECT_EQ(start(8, 16), KY_STATUS_ERROR);
            EXPECT_EQ(take_lines(),
                      (Lines{"notice: SDK initiates in 802.1D mode\n",
                             "error: Failed to Initialize regions(" + std::to_string(pool - 4) + ") offset pool.\n",
                             "error: Failed to allocate " + region + " region.\n"}));
            EXPECT_EQ(bridge_db, nullptr);
            EXPECT_EQ(pools::built(), 0U);
            EXPECT_EQ(device.snapshot(), "");
        }
}

// Nor does a start that any of its calls ends keep a pool, whatever of its undo is refused as well.
TEST_F(PoolsTest, AStartThatIsRefusedLeavesNoPool)
{
    for (unsigned refused = 2; refused <= 7; ++refused)
        for (unsigned undo = refused; undo <= refused + 5; ++undo) { // the first time none
            device.acl = {};
            device.faults.fail_any(refused, 24);
            device.faults.fail_any(undo == refused ? 0 : undo, 25);
            EXPECT_EQ(start(8, 16), 24U);
            device.faults.clear();
            EXPECT_EQ(bridge_db, nullptr);
            EXPECT_EQ(pools::built(), 0U) << refused << " and " << undo;
        }
    device.reset(); // the memory that was not taken back
}

// Every pool, table and record of a run goes with it, also when a clear or the release of the database was refused.
TEST_F(PoolsTest, StopsLeaveNothingBehind)
{
    for (const auto refused : {sdk::Service::cl_free, sdk::Service::bridge_port_set, sdk::Service::utils_memory_put}) {
        device.acl = {}; // without what the last round refused to give up
        ASSERT_EQ(start(), 0U);
        EXPECT_EQ(pools::built(), 6U);
        ASSERT_EQ(announce(port_a), 0U);
        ASSERT_EQ(add(create_bridge(), port_a, 100), 0U);
        device.faults.fail(refused, 1, 77); // cl_free cannot fail
        EXPECT_EQ(ky_bridge_deinit(), refused == sdk::Service::utils_memory_put ? 77U : 0U);
        EXPECT_EQ(pools::built(), 0U);
        EXPECT_EQ(device.memory.raw_outstanding.size(), 0U);
        EXPECT_EQ(bridge_db, nullptr);
    }
    EXPECT_EQ(take_lines().back(), "error: Failed to allocate memory for the bridge DB.\n");
    device.reset(); // the memory that was not taken back
}

} // namespace
