// The rules that map virtual ports onto their bridge's internal VLAN and back: every byte that is sent, the
// offsets that they take, and what is shared and counted: a bridge's egress rule, a port's egress binding.
#include <fmt/format.h>

#include "bridge/acl.h"
#include "support/module_fixture.h"

namespace {

using sdk::Service;
using Lines = std::vector<std::string>;

/// A field by its place in memory: a member that moved cannot hide behind its name.
struct Field {
    std::size_t offset;
    std::size_t width; ///< bytes, little-endian
    std::uint64_t value;
};

using Fields = std::vector<Field>;

Fields operator+(Fields fields, const Fields &more)
{
    fields.insert(fields.end(), more.begin(), more.end());
    return fields;
}

/// What a sent record differs in from one that holds these fields and is 0 everywhere else.
Lines differences(const std::vector<std::uint8_t> &sent, const Fields &fields)
{
    std::vector<std::uint8_t> expected(6576);
    for (const auto &[offset, width, value] : fields)
        for (std::size_t byte = 0; byte < width; ++byte)
            expected[offset + byte] = static_cast<std::uint8_t>(value >> (8 * byte));
    if (sent.size() != expected.size())
        return {fmt::format("{} bytes", sent.size())};
    Lines found;
    for (std::size_t at = 0; at < expected.size(); ++at)
        if (sent[at] != expected[at])
            found.push_back(fmt::format("byte 0x{:03X} is 0x{:02X}, not 0x{:02X}", at, sent[at], expected[at]));
    return found;
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
    constexpr std::uint32_t port = 0x12345678, ingress = 0x01020304, egress = 0x01020305;
    constexpr std::uint16_t vlan = 0x0ABC; // the other one is bridge 2's internal VLAN 2
    const auto deletion = [](std::uint32_t region) -> Fields {
        return {{0x000, 4, 3}, {0x004, 4, region}, {0x008, 2, 1}, {0x010, 2, 2}, {0x140, 8, 0xFFFFFFFF}};
    };
    const auto written = [&](std::uint32_t region, std::uint16_t key, std::uint16_t result, unsigned dont_learn) {
        return deletion(region) + Fields{{0x000, 4, 15}, {0x012, 1, 1}, {0x014, 4, 5}, {0x026, 2, key}} +
               Fields{{0x098, 4, 5}, {0x0AA, 2, 0xFFFF}, {0x130, 4, 24}, {0x134, 2, result}, {0x14C, 4, dont_learn}};
    };
    const auto expect_sent = [&](const Fields &first, const Fields &second) {
        const auto &calls = device.journal.calls();
        std::vector<std::vector<std::uint8_t>> sent;
        for (const sdk::Call &call : calls)
            if (call.service == Service::acl_rules_set)
                sent.push_back(call.sent);
        ASSERT_EQ(sent.size(), 2U);
        EXPECT_EQ(differences(sent[0], first), Lines());
        EXPECT_EQ(differences(sent[1], second), Lines());
        forget();
    };
    const auto expect_written = [&](unsigned dont_learn) {
        expect_sent(written(ingress, vlan, 2, dont_learn) + Fields{{0x030, 4, port}, {0x0B4, 4, 0xFFFFFFFF}},
                    written(egress, 2, vlan, dont_learn));
    };
    ASSERT_EQ(announce(port), 0U);
    ASSERT_EQ(add(1, port, 7), 0U); // takes offset 1 of both regions
    forget();
    ASSERT_EQ(add(2, port, vlan), 0U);
    expect_written(1);
    // Learning rewrites both rules in place; only whether to learn at all reaches the hardware.
    for (const ky_fdb_learn_mode_t mode : {2U, 1U, 0U}) {
        ASSERT_EQ(ky_bridge_set_learning_mode(2, mode, 0), 0U);
        expect_written(mode == 0 ? 1 : 0);
    }
    ASSERT_EQ(remove(2, port, vlan), 0U);
    expect_sent(deletion(egress), deletion(ingress));
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
        forget();
        EXPECT_EQ(write(bridge_record(1), &vports[3]), KY_STATUS_NO_RESOURCES);
        EXPECT_EQ(vports[3].*held, nullptr);
        EXPECT_EQ(take_services(), "");
        EXPECT_EQ(take_log(), Lines{"Could not find available_offset within ACL region.\n"});
        for (const ky_status_t answer : {KY_STATUS_COMM_ERROR, KY_STATUS_SUCCESS}) {
            device.faults.fail(Service::acl_rules_set, 1, answer);
            EXPECT_EQ(write(bridge_record(1), &vports[1]), answer);
            EXPECT_EQ((vports[1].*held)->offset, 2);
        }
    }
}

// The rule is still in the hardware when its deletion is refused: its offset must not go to another rule.
TEST_F(RulesTest, ARefusedIngressDeletionKeepsTheOffset)
{
    ASSERT_EQ(add(1, port_a, 100) | add(1, port_b, 100), 0U);
    bridge_db_virtual_port_t *const vport = bridge_record(1)->virtual_port_map.first();
    device.faults.fail(Service::acl_rules_set, 1, KY_STATUS_COMM_ERROR);
    EXPECT_EQ(__bridge_remove_ingress_acl_rule(bridge_record(1), vport), KY_STATUS_COMM_ERROR);
    ASSERT_NE(vport->ingress_offset, nullptr);
    expect_consistent();
    forget();
    EXPECT_EQ(__bridge_remove_ingress_acl_rule(bridge_record(1), vport), 0U);
    EXPECT_EQ(vport->ingress_offset, nullptr);
    EXPECT_EQ(__bridge_remove_ingress_acl_rule(bridge_record(1), vport), 0U); // nothing is left to do
    EXPECT_EQ(take_services(), "acl_rules_set");
    EXPECT_EQ(__bridge_create_or_update_ingress_acl_rule(bridge_record(1), vport), 0U);
    EXPECT_EQ(vport->ingress_offset->offset, 1); // freed last, handed out first
    expect_consistent();
}

// One rule serves all virtual ports of a bridge: it must outlive the one that wrote it, and go with the last.
TEST_F(RulesTest, ABridgesEgressRuleIsWrittenForItsFirstUserAndDeletedWithItsLast)
{
    const bridge_db_bridge_t *const bridge = bridge_record(1);
    ky_bridge_log_verbosity_level_set(5);
    ASSERT_EQ(add(1, port_a, 100), 0U);
    EXPECT_EQ(take_log(), Lines());
    ASSERT_EQ(add(1, port_b, 100), 0U);
    EXPECT_EQ(take_log(), Lines{"__bridge_create_homogenous_egress_acl_rule: Bridge already has a rule in egress ACL "
                                "region.\n"});
    EXPECT_EQ(bridge->egress_rule_ref_cnt, 2U);
    ASSERT_EQ(remove(1, port_b, 100), 0U);
    EXPECT_EQ(take_log(), Lines{"__bridge_remove_homogenous_egress_acl_rule: Bridges ACL region is still in use.\n"});

    // A newcomer whose port cannot be bound gives back its own use only.
    device.faults.fail(Service::acl_bind_port, 1, KY_STATUS_COMM_ERROR);
    EXPECT_EQ(add(1, port_b, 100), KY_STATUS_COMM_ERROR);
    EXPECT_EQ(bridge->egress_rule_ref_cnt, 1U);
    expect_consistent();
    ASSERT_EQ(add(1, port_b, 100) | remove(1, port_a, 100), 0U);
    EXPECT_EQ(bridge->egress_rule_ref_cnt, 1U);
    expect_consistent();
    forget();
    ASSERT_EQ(remove(1, port_b, 100), 0U);
    EXPECT_EQ(take_log(), Lines());
    EXPECT_EQ(bridge->egress_offset, nullptr);
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
    EXPECT_EQ(bridge_record(1)->egress_offset, nullptr);
    EXPECT_EQ(bridge_record(1)->egress_rule_ref_cnt, 0U);
    EXPECT_EQ(port_record(port_a)->eacl_bound_cnt, 1U); // bound again
    ASSERT_EQ(add(2, port_b, 100), 0U);
    EXPECT_EQ(bridge_record(2)->egress_offset->offset, 1); // the one that was given up
    forget();
    EXPECT_EQ(remove(1, port_a, 100), 0U);
    EXPECT_EQ(take_log(), Lines());
    expect_consistent();
}

// A port that leaves its last bridge must be unbound, and no earlier: without its binding the remaining
// virtual ports would send with the internal VLAN.
TEST_F(RulesTest, APortIsBoundToTheEgressAclFromItsFirstToItsLastVirtualPort)
{
    const bridge_db_log_port_t *const port = port_record(port_a);
    create_bridge();
    ky_bridge_log_verbosity_level_set(5);
    const auto expect_calls = [&](std::uint32_t uses, const std::string &binding, const Lines &messages) {
        std::string services;
        for (const sdk::Call &call : device.journal.calls())
            if (call.service >= Service::acl_bind_port && call.service <= Service::acl_unbind_port)
                services += std::string(name(call.service)) + ";";
        EXPECT_EQ(services, binding);
        EXPECT_EQ(take_log(), messages);
        EXPECT_EQ(port->eacl_bound_cnt, uses);
        EXPECT_EQ(port->eacl_region, uses == 0 ? nullptr : &bridge_db->egress_region);
        forget();
    };
    forget();
    for (std::uint16_t id = 1; id <= 3; ++id) {
        ASSERT_EQ(add(id, port_a, static_cast<std::uint16_t>(10 * id)), 0U);
        expect_calls(id, id == 1 ? "acl_bind_port;" : "",
                     id == 1 ? Lines() : Lines{"__bridge_bind_port_eacl: Port already bound to eACL region.\n"});
    }
    for (std::uint16_t id = 3; id >= 1; --id) {
        ASSERT_EQ(remove(id, port_a, static_cast<std::uint16_t>(10 * id)), 0U);
        expect_calls(id - 1U, id == 1 ? "acl_bind_port_get;acl_unbind_port;" : "",
                     id == 1 ? Lines() : Lines{"__bridge_unbind_port_eacl: Port still belongs to a bridge.\n"});
    }
    EXPECT_EQ(__bridge_unbind_port_eacl(&bridge_db->egress_region, port_record(port_a)), KY_STATUS_PARAM_ERROR);
    expect_calls(0, "", {"Trying to unbind port(0x00010001) from eACL bound count==0.\n"});
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
    EXPECT_EQ(take_log(), (Lines{"multiple_vlan_bridge mode is not supported.\n",
                                 "__bridge_create_egress_acl_rule failed (Parameter Error).\n",
                                 "multiple_vlan_bridge mode is not supported.\n",
                                 "__bridge_remove_egress_acl_rule failed (Parameter Error).\n"}));
    bridge_db->multiple_vlan_bridge_mode = KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS;
    EXPECT_EQ(device.snapshot(), before);
    expect_consistent();
}

} // namespace
