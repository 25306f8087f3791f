// The stand-in SDK: what it refuses and reports, planned faults, the journal, and the small modules.
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sdk/sdk.h"

namespace {

using sdk::device;
using sdk::Service;

constexpr std::uint32_t north = 0x00010001, south = 0x00010002, stranger = 0x00019999;
constexpr std::uint32_t ingress_region = 1, ingress_acl = 1, egress_region = 2, egress_acl = 2, spare_region = 3;

ky_acl_region_params_t region(std::uint32_t cmd, std::uint32_t size, std::uint32_t id)
{
    return {cmd, KY_ACL_KEY_TYPE_BRIDGE, 0, size, id};
}

ky_acl_params_t acl(std::uint32_t cmd, std::uint32_t id, std::uint32_t direction, std::uint32_t on_region)
{
    return {cmd, id, 0, direction, 0, on_region, {}};
}

ky_acl_rules_params_t erased_rule(std::uint32_t region_id, std::uint16_t offset)
{
    ky_acl_rules_params_t rule{};
    rule.cmd = KY_ACCESS_CMD_DELETE;
    rule.region_id = region_id;
    rule.rule_count = 1;
    rule.offset = offset;
    rule.reserved_140 = 0xFFFFFFFF;
    return rule;
}

ky_acl_rules_params_t written_rule(std::uint32_t region_id, std::uint16_t offset)
{
    ky_acl_rules_params_t rule = erased_rule(region_id, offset);
    rule.cmd = KY_ACCESS_CMD_SET;
    rule.valid = 1;
    rule.key.key_type = rule.mask.key_type = KY_ACL_KEY_TYPE_BRIDGE;
    rule.key.vlan = 100;
    rule.mask.vlan = 0xFFFF;
    if (region_id == ingress_region) {
        rule.key.log_port = north;
        rule.mask.log_port = 0xFFFFFFFF;
    }
    rule.action_selector = KY_ACL_ACTION_SET_VLAN_AND_LEARN;
    rule.new_vlan = 7;
    rule.dont_learn = 1;
    return rule;
}

ky_acl_bind_params_t binding(std::uint32_t cmd, std::uint32_t acl_id, std::uint32_t direction, std::uint32_t log_port)
{
    return {cmd, acl_id, direction, log_port};
}

struct GroupRecord {
    ky_acl_vlan_group_params_t header;
    std::uint16_t vlan;
    std::uint16_t behind = 0xBEEF; // not sent
};

GroupRecord group(std::uint32_t cmd, std::uint16_t id, std::uint16_t vlan)
{
    return {{cmd, 0, 0, id, cmd == KY_ACCESS_CMD_CREATE ? 0U : 1U}, vlan};
}

ky_status_t call(ky_acl_region_params_t record)
{
    return acl_region_set(&record, 4, 0, 0);
}
ky_status_t call(ky_acl_params_t record)
{
    return acl_set(&record);
}
ky_status_t call(ky_acl_rules_params_t record)
{
    return acl_rules_set(&record);
}
ky_status_t call(GroupRecord record)
{
    return acl_vlan_group_set(&record.header);
}
ky_status_t call(ky_acl_bind_params_t record)
{
    return record.cmd == KY_ACCESS_CMD_UNBIND ? acl_unbind_port(&record) : acl_bind_port(&record);
}
ky_status_t vlans(std::uint32_t cmd, std::uint32_t log_port, std::vector<ky_vlan_entry_t> entries)
{
    return vlan_port_multi_vlans_set(cmd, log_port, static_cast<std::uint32_t>(entries.size()), entries.data());
}

/// Two regions with their ACLs and a region without, a rule in each of the two, a port bound both ways and in VLAN 100,
/// a group with VLAN 7.
void power_on()
{
    device().reset();
    device().ports.ports = {{north, {}}, {south, {}}};
    call(region(KY_ACCESS_CMD_CREATE, 4, 0));
    call(acl(KY_ACCESS_CMD_CREATE, 0, KY_ACL_DIRECTION_INGRESS, ingress_region));
    call(region(KY_ACCESS_CMD_CREATE, 4, 0));
    call(acl(KY_ACCESS_CMD_CREATE, 0, KY_ACL_DIRECTION_EGRESS, egress_region));
    call(region(KY_ACCESS_CMD_CREATE, 4, 0));
    call(written_rule(ingress_region, 3));
    call(written_rule(egress_region, 1));
    call(binding(KY_ACCESS_CMD_BIND, ingress_acl, KY_ACL_DIRECTION_INGRESS, north));
    call(binding(KY_ACCESS_CMD_BIND, egress_acl, KY_ACL_DIRECTION_EGRESS, north));
    vlans(KY_ACCESS_CMD_ADD, north, {{100, 0, KY_EGRESS_MODE_TAGGED}});
    call(group(KY_ACCESS_CMD_CREATE, 0, 0));
    call(group(KY_ACCESS_CMD_ADD, 1, 7));
    ASSERT_EQ(device().violations, std::vector<std::string>{});
    ASSERT_EQ(device().journal.count(), 12U);
    for (const sdk::Call &made : device().journal.calls()) {
        ASSERT_EQ(made.status, 0U) << describe(made);
    }
}

class Sdk : public testing::Test {
protected:
    void SetUp() override { power_on(); }
    void TearDown() override { device().reset(); }
};

// ---- Strictness -----------------------------------------------------------------------------------

/// Inverts every byte of a good call's record in turn: bytes with a fixed value have to be refused and reported.
/// @return the bytes whose inversion is another good call
template <typename Record> std::set<std::size_t> free_bytes(const Record &record, std::size_t size = sizeof(Record))
{
    std::set<std::size_t> accepted;
    for (std::size_t at = 0; at < size; ++at) {
        Record changed = record;
        reinterpret_cast<std::uint8_t *>(&changed)[at] ^= 0xFF;
        power_on();
        device().journal.keep(0);
        const std::string before = device().snapshot();
        if (call(changed) == KY_STATUS_SUCCESS) {
            accepted.insert(at);
        } else {
            EXPECT_EQ(device().snapshot(), before) << at;
        }
        EXPECT_EQ(device().violations.empty(), accepted.contains(at)) << at;
    }
    power_on();
    EXPECT_EQ(call(record), 0U);
    return accepted;
}

TEST_F(Sdk, RefusesEveryOddByteOfARecord)
{
    using Free = std::set<std::size_t>;
    EXPECT_EQ(free_bytes(written_rule(ingress_region, 3)), (Free{0x26, 0x30, 0x31, 0x32, 0x33, 0x134}));
    EXPECT_EQ(free_bytes(written_rule(egress_region, 3)), (Free{0x26, 0x134}));
    EXPECT_EQ(free_bytes(erased_rule(ingress_region, 3)), Free{});
    EXPECT_EQ(free_bytes(region(KY_ACCESS_CMD_CREATE, 4, 0)), (Free{12, 13}));
    EXPECT_EQ(free_bytes(acl(KY_ACCESS_CMD_CREATE, 0, KY_ACL_DIRECTION_EGRESS, spare_region)), Free{});
    EXPECT_EQ(free_bytes(group(KY_ACCESS_CMD_CREATE, 0, 0), 14), Free{});
    EXPECT_EQ(free_bytes(group(KY_ACCESS_CMD_ADD, 1, 5), 14), Free{12});
    EXPECT_EQ(free_bytes(group(KY_ACCESS_CMD_DELETE, 1, 7), 14), Free{});

    auto rule = written_rule(ingress_region, 2);
    rule.reserved_150[6239] = 0xAB;
    EXPECT_EQ(call(rule), 13U);
    EXPECT_NE(device().violations.back().find("acl_rules_set: byte 0x19AF of the record is 0xAB, expected 0x00"),
              std::string::npos);
}

TEST_F(Sdk, RefusesAndReportsBugsOfItsCaller)
{
    const std::uint32_t add = KY_ACCESS_CMD_ADD, create = KY_ACCESS_CMD_CREATE, destroy = KY_ACCESS_CMD_DESTROY,
                        bind = KY_ACCESS_CMD_BIND, unbind = KY_ACCESS_CMD_UNBIND;
    static std::uint32_t number = 3;
    static int somebodys;
    const auto join = [](std::uint16_t vlan, std::uint32_t mode) {
        return vlans(KY_ACCESS_CMD_ADD, north, {{8, 0, 0}, {vlan, 0, mode}});
    };
    const auto leave = [](std::uint16_t vlan) {
        return vlans(KY_ACCESS_CMD_DELETE, north, {{100, 0, 0}, {vlan, 0, 0}});
    };
    struct Case {
        const char *what;
        ky_status_t expected;
        std::function<ky_status_t()> made;
    };
    const std::vector<Case> cases = {
        {"region of no rules", 14, [=] { return call(region(create, 0, 0)); }},
        {"region destroyed under its ACL", 29, [=] { return call(region(destroy, 4, ingress_region)); }},
        {"ACL on an unknown region", 21, [=] { return call(acl(create, 0, 0, 9)); }},
        {"second ACL on a region", 29, [=] { return call(acl(create, 0, 0, ingress_region)); }},
        {"ACL destroyed with a port bound", 29, [=] { return call(acl(destroy, ingress_acl, 0, ingress_region)); }},
        {"rule in an unknown region", 21, [=] { return call(written_rule(9, 1)); }},
        {"rule at offset 0", 14, [=] { return call(written_rule(ingress_region, 0)); }},
        {"rule behind the last offset", 14, [=] { return call(written_rule(ingress_region, 5)); }},
        {"delete of an unused offset", 21, [=] { return call(erased_rule(ingress_region, 2)); }},
        {"bound twice", 24, [=] { return call(binding(bind, ingress_acl, 0, north)); }},
        {"bound to an unknown ACL", 21, [=] { return call(binding(bind, 9, 0, south)); }},
        {"bound in the other direction", 13, [=] { return call(binding(bind, egress_acl, 0, south)); }},
        {"unbound without a binding", 23, [=] { return call(binding(unbind, ingress_acl, 0, south)); }},
        {"unbound from another ACL", 23, [=] { return call(binding(unbind, egress_acl, 0, north)); }},
        {"group destroyed with a VLAN in it", 29, [=] { return call(group(destroy, 1, 7)); }},
        {"VLAN in the group twice", 22, [=] { return call(group(add, 1, 7)); }},
        {"VLAN 0 in a group", 14, [=] { return call(group(add, 1, 0)); }},
        {"left a VLAN without membership", 21, [=] { return leave(7); }},
        {"joined a VLAN twice at once", 13, [=] { return join(8, 0); }},
        {"joined VLAN 4095", 14, [=] { return join(4095, 0); }},
        {"joined with mode 2", 14, [=] { return join(9, 2); }},
        {"RSTP state 3", 14, [=] { return rstp_port_state_set(KY_ACCESS_CMD_SET, north, &number); }},
        {"no callback", 12, [=] { return adviser_register_event(1, 9, nullptr); }},
        {"foreign memory put", 13, [=] { return utils_memory_put(&somebodys, 8); }},
    };
    for (const Case &bad : cases) {
        SCOPED_TRACE(bad.what);
        power_on();
        const std::string before = device().snapshot();
        EXPECT_EQ(bad.made(), bad.expected);
        EXPECT_EQ(device().violations.size(), 1U);
        EXPECT_EQ(device().snapshot(), before);
    }
}

TEST_F(Sdk, RefusesWhatAUserMayAskWithoutReport)
{
    std::uint8_t byte = 0;
    std::uint32_t state = 1;
    EXPECT_EQ(port_db_check_port_mode_router_port(stranger), 21U);
    EXPECT_EQ(port_swid_alloc_get(KY_ACCESS_CMD_GET, stranger, &byte), 21U);
    EXPECT_EQ(rstp_port_state_set(KY_ACCESS_CMD_SET, stranger, &state), 21U);
    EXPECT_EQ(vlans(KY_ACCESS_CMD_ADD, stranger, {{8, 0, 0}}), 21U);
    EXPECT_EQ(call(binding(KY_ACCESS_CMD_BIND, ingress_acl, 0, stranger)), 21U);
    EXPECT_EQ(device().violations, std::vector<std::string>{});
}

TEST_F(Sdk, NeverHandsOutAGroupThatIsInUse)
{
    device().journal.keep(0);
    for (int created = 0; created < 70000; ++created) {
        GroupRecord record = group(KY_ACCESS_CMD_CREATE, 0, 0);
        ASSERT_EQ(acl_vlan_group_set(&record.header), 0U);
        ASSERT_GT(record.header.vlan_group, 1U); // group 1 is in use
        ASSERT_LT(record.header.vlan_group, KY_VLAN_GROUP_NONE);
        ASSERT_EQ(call(group(KY_ACCESS_CMD_DESTROY, record.header.vlan_group, 7)), 0U);
    }
    while (call(group(KY_ACCESS_CMD_CREATE, 0, 0)) == KY_STATUS_SUCCESS) {
    }
    EXPECT_EQ(device().acl.vlan_groups.size(), 65534U);
    EXPECT_EQ(call(group(KY_ACCESS_CMD_CREATE, 0, 0)), 5U);
    EXPECT_EQ(device().violations, std::vector<std::string>{}); // a resource that ran out is nobody's bug
}

TEST_F(Sdk, AccountsMemory)
{
    void *memory = nullptr;
    ASSERT_EQ(utils_clr_memory_get(&memory, 2, 8, 8), 0U);
    void *raw = cl_malloc(100);
    EXPECT_EQ(utils_memory_put(memory, 9), 13U);
    EXPECT_EQ(device().memory.bytes(), 116U);
    EXPECT_EQ(utils_memory_put(memory, 8), 0U);
    EXPECT_EQ(utils_memory_put(memory, 8), 13U);
    cl_free(raw);
    cl_free(raw);
    EXPECT_EQ(device().memory.bytes(), 0U);
    EXPECT_EQ(device().violations.size(), 3U);
}

// ---- Journal ------------------------------------------------------------

TEST_F(Sdk, JournalsTheBytesOfARecord)
{
    ky_acl_region_params_t record = region(KY_ACCESS_CMD_CREATE, 8, 0);
    ASSERT_EQ(acl_region_set(&record, 4, 0, 0), 0U);
    const sdk::Call &made = device().journal.calls().back();
    const auto asked = region(KY_ACCESS_CMD_CREATE, 8, 0), answered = region(KY_ACCESS_CMD_CREATE, 8, 4);
    ASSERT_EQ(made.sent.size(), sizeof asked);
    EXPECT_EQ(std::memcmp(made.sent.data(), &asked, sizeof asked), 0);
    EXPECT_EQ(std::memcmp(made.returned.data(), &answered, sizeof answered), 0);
    EXPECT_EQ(device().journal.find(6)->sent.size(), 6576U);
    EXPECT_EQ(device().journal.find(12)->sent.size(), 14U);
}

TEST_F(Sdk, KeepsAsManyCallsAsAsked)
{
    device().journal.keep(2);
    device().bridge_port_set = [](auto...) { return port_db_check_port_mode_router_port(north); };
    bridge_port_set(KY_ACCESS_CMD_DELETE, 1, north, 100, 0, 1);
    const auto &calls = device().journal.calls();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(describe(calls[0]),
              "bridge_port_set DELETE bridge 1 port 0x00010001 vlan 100 tagged is_internal 1 -> 21");
    EXPECT_EQ(calls[0].depth, 0U);
    EXPECT_EQ(calls[1].number, 14U); // a call within a call comes behind it
    EXPECT_EQ(calls[1].depth, 1U);
}

} // namespace
