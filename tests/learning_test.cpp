// A bridge's learning mode: which rules it is written into, in which order, and how far it gets when one is refused.
#include "support/module_fixture.h"

namespace {

using sdk::Service;
using Lines = std::vector<std::string>;

class LearningTest : public ModuleTest {
protected:
    /// Bridge 1 with three virtual ports, added against the order of their ports, so that a rule written at
    /// another one's offset shows; bridge 2 with one, to be left alone.
    void SetUp() override
    {
        ASSERT_EQ(start(), 0U);
        ASSERT_EQ(announce(port_a) | announce(port_b) | announce(port_c), 0U);
        ASSERT_EQ(create_bridge(), 1);
        ASSERT_EQ(create_bridge(), 2);
        ASSERT_EQ(add(1, port_c, 100) | add(1, port_a, 100) | add(1, port_b, 100) | add(2, port_a, 200), 0U);
        forget();
    }
    static ky_status_t set(std::uint32_t mode) { return ky_bridge_set_learning_mode(1, mode, 0); }
    /// The writes of a whole walk over bridge 1.
    static Lines writes(const std::string &learning)
    {
        return {"acl_rules_set SET region 1 offset 2: port 0x00010001 vlan 100 -> vlan 1, " + learning,
                "acl_rules_set SET region 2 offset 1: any port vlan 1 -> vlan 100, " + learning,
                "acl_rules_set SET region 1 offset 3: port 0x00010002 vlan 100 -> vlan 1, " + learning,
                "acl_rules_set SET region 1 offset 1: port 0x00010003 vlan 100 -> vlan 1, " + learning};
    }
};

// One rule left with the old mode, and the switch goes on learning at one port only.
TEST_F(LearningTest, EveryRuleOfTheBridgeIsRewrittenInPlace)
{
    // All that the rules know is whether the mode is 0; yet a mode that differs is always written.
    for (const std::uint32_t mode : {1U, 0xFFFFFFFFU, 0U}) {
        std::uint32_t stored = 77;
        EXPECT_EQ(set(mode), 0U);
        EXPECT_EQ(ky_bridge_get_learning_mode(1, &stored, 0), 0U);
        EXPECT_EQ(stored, mode);
        EXPECT_EQ(take_calls(), writes(mode == 0 ? "don't learn" : "learn"));
        expect_consistent();
    }
    EXPECT_EQ(take_log(), Lines());
    ky_bridge_log_verbosity_level_set(5);
    EXPECT_EQ(set(0), 0U);
    EXPECT_EQ(take_services(), "");
    EXPECT_EQ(take_lines(), Lines{"debug: ky_bridge_set_learning_mode: Bridge is already in learning mode = 0\n"});
}

// Nothing is undone, so how far it came must be exact: the walk ends at the refusal, and the mode is the new one.
TEST_F(LearningTest, ARefusedRuleEndsTheWalkAndTheModeStays)
{
    const std::string rule = "error: acl_rules_set for ";
    const std::string mode = "error: Failed to configure learning mode to bridge 1 ";
    const Lines lines[] = {
        {rule + "ingress acl on port(0x00010001) vlan(100) bridge(1) failed.\n",
         mode + "(ingress), vport(0x10001,100)\n"},
        {rule + "egress acl on vlan(100) bridge(1) failed.\n", mode + "(egress), vport(0x10001,100)\n"},
    };
    for (unsigned nth = 1; nth <= 2; ++nth) {
        Lines calls = writes("learn");
        calls.resize(nth);
        calls.back() += " -> 4 (planned fault)";
        device.faults.fail(Service::acl_rules_set, nth, 4);
        EXPECT_EQ(set(1), 4U);
        EXPECT_EQ(take_calls(), calls);
        EXPECT_EQ(take_lines(), lines[nth - 1]);
        EXPECT_EQ(set(1), 0U); // it has that mode
        EXPECT_EQ(take_services(), "");
        EXPECT_EQ(set(0), 0U); // another mode reaches every rule, at the offset that it has kept
        EXPECT_EQ(take_calls(), writes("don't learn"));
    }
}

// After a refused removal of the egress rule a virtual port may be there without a use of it. Writing the rule
// for that one would take a second offset, which nobody would ever give back.
TEST_F(LearningTest, AVirtualPortWithoutAUseOfTheEgressRuleWritesNone)
{
    ASSERT_EQ(remove(1, port_b, 100) | remove(1, port_c, 100), 0U);
    device.faults.fail(Service::acl_rules_set, 1, 29);
    ASSERT_EQ(remove(1, port_a, 100), 29U);
    forget();
    EXPECT_EQ(set(1), 0U);
    EXPECT_EQ(take_calls(), Lines{writes("learn")[0]});

    ASSERT_EQ(add(1, port_c, 100) | add(1, port_b, 100), 0U); // at the offsets that they had
    forget();
    EXPECT_EQ(set(0), 0U);
    Lines calls = writes("don't learn");
    std::swap(calls[1], calls[2]); // the egress rule after the first virtual port that uses it
    EXPECT_EQ(take_calls(), calls);
}

} // namespace
