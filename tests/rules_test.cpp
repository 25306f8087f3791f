// The rules that map virtual ports onto their bridge's internal VLAN and back: every byte that is sent, the
// offsets that they take, and what is shared and counted: a bridge's egress rule, a port's egress binding.
#include <fmt/format.h>

#include "bridge/acl.h"
#include "support/module_fixture.h"

namespace {

using sdk::Service;
using Lines = std::vector<std::string>;

/// The bytes of a record that are not 0, as "place:bytes", by their place in memory: a member that moved cannot
/// hide behind its name.
std::string bytes(const std::vector<std::uint8_t> &record)
{
    EXPECT_EQ(record.size(), 6576U);
    std::string text;
    for (std::size_t at = 0; at < record.size(); ++at)
        if (record[at] != 0)
            text +=
                (at == 0 || record[at - 1] == 0 ? fmt::format(" {:03X}:", at) : "") + fmt::format("{:02X}", record[at]);
    return text;
}

class RulesTest : public ModuleTest {
protected:
    void SetUp() override
    {
        device.acl.next_region_id = 0x01020304;
        ASSERT_EQ(start(3, 3), 0U);
        ASSERT_EQ(announce(port_a) | announce(port_b), 0U);
        ASSERT_EQ(create_bridge(), 1);
        ASSERT_EQ(create_bridge(), 2);
        forget();
    }
};

// A field at a wrong place, a byte left over from the stack, or a key and an action swapped would program
// another rule than the one that the database believes in.
TEST_F(RulesTest, EveryByteOfARuleIsSentAsTheAclManagerReadsIt)
{
    const auto take_sent = [&] {
        Lines sent;
        for (const sdk::Call &call : device.journal.calls())
            if (call.service == Service::acl_rules_set)
                sent.push_back(bytes(call.sent));
        forget();
        return sent;
    };
    // Port 0x12345678 with VLAN 0x0ABC in bridge 2, internal VLAN 2; regions 0x01020304 and 0x01020305.
    const auto written = [](const std::string &dont_learn) {
        return Lines{" 000:0F 004:0403020101 010:02 012:01 014:05 026:BC0A 030:78563412 098:05 0AA:FFFF 0B4:FFFFFFFF "
                     "130:18 134:02 140:FFFFFFFF" +
                         dont_learn,
                     " 000:0F 004:0503020101 010:02 012:01 014:05 026:02 098:05 0AA:FFFF 130:18 134:BC0A 140:FFFFFFFF" +
                         dont_learn};
    };
    ASSERT_EQ(announce(0x12345678), 0U);
    ASSERT_EQ(add(1, 0x12345678, 7), 0U); // takes offset 1 of both regions
    forget();
    ASSERT_EQ(add(2, 0x12345678, 0x0ABC), 0U);
    EXPECT_EQ(take_sent(), written(" 14C:01"));
    // Learning rewrites both rules in place; only whether to learn at all reaches the hardware.
    for (const ky_fdb_learn_mode_t mode : {2U, 1U, 0U}) {
        ASSERT_EQ(ky_bridge_set_learning_mode(2, mode, 0), 0U);
        EXPECT_EQ(take_sent(), written(mode == 0 ? " 14C:01" : ""));
    }
    ASSERT_EQ(remove(2, 0x12345678, 0x0ABC), 0U);
    EXPECT_EQ(take_sent(),
              (Lines{" 000:03 004:0503020101 010:02 140:FFFFFFFF", " 000:03 004:0403020101 010:02 140:FFFFFFFF"}));
}

// An offset that leaks on a refused write shrinks the region; one that is taken anew by an update leaves the
// old rule in the hardware.
TEST_F(RulesTest, AWriteTakesTheNextOffsetAndKeepsItAcrossUpdates)
{
    struct Direction {
        ky_status_t (*write)(bridge_db_bridge_t *, bridge_db_virtual_port_t *);
        bridge_acl_offset_t *bridge_db_virtual_port_t::*held;
    };
    for (const auto &[write, held] :
         {Direction{__bridge_create_or_update_ingress_acl_rule, &bridge_db_virtual_port_t::ingress_offset},
          Direction{__bridge_create_or_update_egress_acl_rule, &bridge_db_virtual_port_t::egress_offset}}) {
        bridge_db_virtual_port_t vports[4] = {};
        device.faults.fail(Service::acl_rules_set, 1, KY_STATUS_COMM_ERROR);
        EXPECT_EQ(write(bridge_record(1), &vports[0]), KY_STATUS_COMM_ERROR);
        EXPECT_EQ(vports[0].*held, nullptr);
        for (unsigned number = 0; number < 3; ++number) {
            EXPECT_EQ(write(bridge_record(1), &vports[number]), 0U);
            EXPECT_EQ((vports[number].*held)->offset, number + 1);
        }
        EXPECT_EQ(write(bridge_record(1), &vports[3]), KY_STATUS_NO_RESOURCES);
        EXPECT_EQ(vports[3].*held, nullptr);
        EXPECT_EQ(take_log().back(), "Could not find available_offset within ACL region.\n");
        for (const ky_status_t answer : {KY_STATUS_COMM_ERROR, KY_STATUS_SUCCESS}) {
            device.faults.fail(Service::acl_rules_set, 1, answer);
            EXPECT_EQ(write(bridge_record(1), &vports[1]), answer);
            EXPECT_EQ((vports[1].*held)->offset, 2);
        }
    }
}

// One rule serves all virtual ports of a bridge: it must outlive the one that wrote it, and go with the last.
TEST_F(RulesTest, ABridgesEgressRuleIsWrittenForItsFirstUserAndDeletedWithItsLast)
{
    ky_bridge_log_verbosity_level_set(5);
    ASSERT_EQ(add(1, port_a, 100), 0U);
    EXPECT_EQ(take_log(), Lines());
    ASSERT_EQ(add(1, port_b, 100), 0U);
    EXPECT_EQ(take_log(),
              Lines{"debug: __bridge_create_homogenous_egress_acl_rule: Bridge already has a rule in egress ACL "
                    "region.\n"});
    ASSERT_EQ(remove(1, port_b, 100), 0U);
    EXPECT_EQ(take_log(),
              Lines{"debug: __bridge_remove_homogenous_egress_acl_rule: Bridges ACL region is still in use.\n"});
    ASSERT_EQ(add(1, port_b, 100) | remove(1, port_a, 100), 0U);
    expect_consistent();
    forget();
    ASSERT_EQ(remove(1, port_b, 100), 0U);
    EXPECT_EQ(take_log(), Lines());
    EXPECT_EQ(bridge_record(1)->egress_offset, nullptr);
    expect_consistent();
}

// Unlike an ingress rule, an egress rule whose deletion is refused is given up: the virtual port, still
// attached, must not count down a use that it no longer has when its deletion is repeated.
TEST_F(RulesTest, ARefusedEgressDeletionGivesTheRuleUp)
{
    ASSERT_EQ(add(1, port_a, 100), 0U);
    forget();
    device.faults.fail(Service::acl_rules_set, 1, KY_STATUS_COMM_ERROR);
    EXPECT_EQ(remove(1, port_a, 100), KY_STATUS_COMM_ERROR);
    EXPECT_EQ(take_log(), (Lines{"acl_rules_set for egress acl on vlan(100) bridge(1) failed.\n",
                                 "__bridge_remove_homogenous_egress_acl_rule failed when removing eACL.\n",
                                 "__bridge_remove_egress_acl_rule failed (Communication Error).\n"}));
    ASSERT_EQ(add(2, port_b, 100), 0U);
    EXPECT_EQ(bridge_record(2)->egress_offset->offset, 1); // the one that was given up
    forget();
    EXPECT_EQ(remove(1, port_a, 100), 0U);
    EXPECT_EQ(take_log(), Lines());
    expect_consistent();

    // Nor a use of the binding, when the port could not be bound again.
    ASSERT_EQ(add(1, port_a, 100), 0U);
    device.faults.fail(Service::acl_rules_set, 1, KY_STATUS_COMM_ERROR);
    device.faults.fail(Service::acl_bind_port, 1, KY_STATUS_COMM_ERROR);
    EXPECT_EQ(remove(1, port_a, 100), KY_STATUS_COMM_ERROR);
    forget();
    EXPECT_EQ(remove(1, port_a, 100), 0U);
    EXPECT_EQ(take_log(), Lines());
}

// A port without a record in the module has no binding to count, and a virtual port without a rule, as refused
// restores leave it, can be deleted.
TEST_F(RulesTest, WhatIsNotThereIsNotRemoved)
{
    bridge_db_virtual_port_t vport = {};
    vport.log_port = port_c;
    forget();
    EXPECT_EQ(__bridge_remove_ingress_acl_rule(bridge_record(1), &vport), 0U);
    EXPECT_EQ(take_services(), "");
    EXPECT_EQ(__bridge_create_egress_acl_rule(bridge_record(1), &vport), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(__bridge_remove_egress_acl_rule(bridge_record(1), &vport), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(take_log(), (Lines{"__bridge_db_get_log_port failed when adding eACL.\n",
                                 "__bridge_db_get_log_port failed when removing eACL.\n"}));
}

// A port that leaves its last bridge must be unbound, and no earlier: without its binding the remaining
// virtual ports would send with the internal VLAN.
TEST_F(RulesTest, APortIsBoundToTheEgressAclFromItsFirstToItsLastVirtualPort)
{
    ky_bridge_log_verbosity_level_set(5);
    ASSERT_EQ(add(1, port_a, 10) | add(2, port_a, 20), 0U);
    expect_consistent();
    ASSERT_EQ(remove(1, port_a, 10), 0U);
    expect_consistent();
    ASSERT_EQ(remove(2, port_a, 20), 0U);
    expect_consistent();
    EXPECT_EQ(__bridge_unbind_port_eacl(&bridge_db->egress_region, port_record(port_a)), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(take_log(), (Lines{"debug: __bridge_bind_port_eacl: Port already bound to eACL region.\n",
                                 "debug: __bridge_unbind_port_eacl: Port still belongs to a bridge.\n",
                                 "Trying to unbind port(0x00010001) from eACL bound count==0.\n"}));
}

// One rule for all virtual ports holds only while they share a VLAN: in any other mode nothing is written.
TEST_F(RulesTest, OnlyTheHomogenousModeHasEgressRules)
{
    ASSERT_EQ(add(1, port_a, 100), 0U);
    const std::string before = device.snapshot();
    forget();
    bridge_db->multiple_vlan_bridge_mode = KY_BRIDGE_MULTIPLE_VLAN_MODE_NON_HOMOGENOUS;
    EXPECT_EQ(add(1, port_b, 100), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(remove(1, port_a, 100), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(__allocate_egress_regions(), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(__deallocate_egress_regions(), KY_STATUS_PARAM_ERROR);
    const std::string refused = "multiple_vlan_bridge mode is not supported.\n";
    EXPECT_EQ(take_log(), (Lines{refused, "__bridge_create_egress_acl_rule failed (Parameter Error).\n", refused,
                                 "__bridge_remove_egress_acl_rule failed (Parameter Error).\n", refused, refused}));
    bridge_db->multiple_vlan_bridge_mode = KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS;
    EXPECT_EQ(device.snapshot(), before);
    expect_consistent();
}

} // namespace
