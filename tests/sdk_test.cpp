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
constexpr std::uint32_t ingress_region = 1, ingress_acl = 1, egress_region = 2, egress_acl = 2;

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

ky_acl_rules_params_t written_rule(std::uint32_t region_id, std::uint16_t offset, std::uint16_t vlan = 100)
{
    ky_acl_rules_params_t rule = erased_rule(region_id, offset);
    rule.cmd = KY_ACCESS_CMD_SET;
    rule.valid = 1;
    rule.key.key_type = rule.mask.key_type = KY_ACL_KEY_TYPE_BRIDGE;
    rule.key.vlan = vlan;
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
    switch (record.cmd) {
    case KY_ACCESS_CMD_GET:
        return acl_bind_port_get(&record);
    case KY_ACCESS_CMD_UNBIND:
        return acl_unbind_port(&record);
    default:
        return acl_bind_port(&record);
    }
}
ky_status_t vlans(std::uint32_t cmd, std::uint32_t log_port, std::vector<ky_vlan_entry_t> entries)
{
    return vlan_port_multi_vlans_set(cmd, log_port, static_cast<std::uint32_t>(entries.size()), entries.data());
}

/// Two regions with their ACLs, a rule in each, a port bound both ways and in VLAN 100, a group with VLAN 7.
void power_on()
{
    device().reset();
    device().ports.ports = {{north, {}}, {south, {}}};
    call(region(KY_ACCESS_CMD_CREATE, 4, 0));
    call(acl(KY_ACCESS_CMD_CREATE, 0, KY_ACL_DIRECTION_INGRESS, ingress_region));
    call(region(KY_ACCESS_CMD_CREATE, 4, 0));
    call(acl(KY_ACCESS_CMD_CREATE, 0, KY_ACL_DIRECTION_EGRESS, egress_region));
    call(written_rule(ingress_region, 3));
    call(written_rule(egress_region, 1));
    call(binding(KY_ACCESS_CMD_BIND, ingress_acl, KY_ACL_DIRECTION_INGRESS, north));
    call(binding(KY_ACCESS_CMD_BIND, egress_acl, KY_ACL_DIRECTION_EGRESS, north));
    vlans(KY_ACCESS_CMD_ADD, north, {{100, 0, KY_EGRESS_MODE_TAGGED}});
    call(group(KY_ACCESS_CMD_CREATE, 0, 0));
    call(group(KY_ACCESS_CMD_ADD, 1, 7));
    ASSERT_EQ(device().violations, std::vector<std::string>{});
    ASSERT_EQ(device().journal.count(), 11U);
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
/// @param prepare makes the call a good one  @return the bytes whose inversion is another good call
template <typename Record>
std::set<std::size_t> free_bytes(
    const Record &record, std::size_t size = sizeof(Record), void (*prepare)() = [] {})
{
    const auto start = [prepare] {
        power_on();
        device().journal.keep(0);
        prepare();
    };
    start();
    EXPECT_EQ(call(record), 0U);
    std::set<std::size_t> accepted;
    for (std::size_t at = 0; at < size; ++at) {
        Record changed = record;
        reinterpret_cast<std::uint8_t *>(&changed)[at] ^= 0xFF;
        start();
        const std::string before = device().snapshot();
        if (call(changed) == KY_STATUS_SUCCESS) {
            accepted.insert(at);
        } else {
            EXPECT_EQ(device().snapshot(), before) << at;
        }
        EXPECT_EQ(device().violations.empty(), accepted.contains(at)) << at;
    }
    return accepted;
}

TEST_F(Sdk, RefusesEveryOddByteOfARecord)
{
    using Free = std::set<std::size_t>;
    const std::uint32_t create = KY_ACCESS_CMD_CREATE, destroy = KY_ACCESS_CMD_DESTROY;
    const auto region_3 = [] { call(region(KY_ACCESS_CMD_CREATE, 8, 0)); };
    const auto acl_3 = [] {
        call(region(KY_ACCESS_CMD_CREATE, 8, 0));
        call(acl(KY_ACCESS_CMD_CREATE, 0, KY_ACL_DIRECTION_EGRESS, 3));
    };
    const auto group_2 = [] { call(group(KY_ACCESS_CMD_CREATE, 0, 0)); };
    EXPECT_EQ(free_bytes(written_rule(ingress_region, 3)), (Free{0x26, 0x30, 0x31, 0x32, 0x33, 0x134}));
    EXPECT_EQ(free_bytes(written_rule(egress_region, 3)), (Free{0x26, 0x134}));
    EXPECT_EQ(free_bytes(erased_rule(ingress_region, 3)), Free{});
    EXPECT_EQ(free_bytes(region(create, 4, 0)), (Free{12, 13}));
    EXPECT_EQ(free_bytes(region(destroy, 8, 3), 20, region_3), Free{});
    EXPECT_EQ(free_bytes(acl(create, 0, KY_ACL_DIRECTION_INGRESS, 3), 32, region_3), Free{});
    EXPECT_EQ(free_bytes(acl(destroy, 3, KY_ACL_DIRECTION_EGRESS, 3), 32, acl_3), Free{});
    EXPECT_EQ(free_bytes(group(create, 0, 0), 14), Free{});
    EXPECT_EQ(free_bytes(group(KY_ACCESS_CMD_ADD, 1, 5), 14), Free{12});
    EXPECT_EQ(free_bytes(group(KY_ACCESS_CMD_DELETE, 1, 7), 14), Free{});
    EXPECT_EQ(free_bytes(group(destroy, 2, 7), 14, group_2), (Free{12, 13})); // the VLAN is not looked at
}

TEST_F(Sdk, RefusesAndReportsBugsOfItsCaller)
{
    const std::uint32_t add = KY_ACCESS_CMD_ADD, remove = KY_ACCESS_CMD_DELETE, create = KY_ACCESS_CMD_CREATE,
                        destroy = KY_ACCESS_CMD_DESTROY, bind = KY_ACCESS_CMD_BIND, unbind = KY_ACCESS_CMD_UNBIND,
                        get = KY_ACCESS_CMD_GET, set = KY_ACCESS_CMD_SET;
    static std::uint32_t number;
    static std::uint8_t byte;
    static int somebodys;
    const ky_adviser_callback_t callback = [](std::uint32_t, const ky_port_event_t *) -> ky_status_t { return 0; };
    struct Case {
        const char *what;
        ky_status_t expected;
        std::function<ky_status_t()> made;
    };
    const std::vector<Case> cases = {
        {"region of no rules", 14, [=] { return call(region(create, 0, 0)); }},
        {"unknown region destroyed", 21, [=] { return call(region(destroy, 4, 9)); }},
        {"region destroyed under its ACL", 29, [=] { return call(region(destroy, 4, ingress_region)); }},
        {"arguments other than 4, 0, 0", 13,
         [=] {
             auto record = region(create, 4, 0);
             return acl_region_set(&record, 4, 0, 1);
         }},
        {"ACL on an unknown region", 21, [=] { return call(acl(create, 0, 0, 9)); }},
        {"second ACL on a region", 29, [=] { return call(acl(create, 0, 0, ingress_region)); }},
        {"unknown ACL destroyed", 21, [=] { return call(acl(destroy, 9, 0, ingress_region)); }},
        {"ACL destroyed with a port bound", 29, [=] { return call(acl(destroy, ingress_acl, 0, ingress_region)); }},
        {"rule in an unknown region", 21, [=] { return call(written_rule(9, 1)); }},
        {"rule at offset 0", 14, [=] { return call(written_rule(ingress_region, 0)); }},
        {"rule behind the last offset", 14, [=] { return call(written_rule(ingress_region, 5)); }},
        {"delete of an unused offset", 21, [=] { return call(erased_rule(ingress_region, 2)); }},
        {"rule record NULL", 12, [=] { return acl_rules_set(nullptr); }},
        {"bound twice", 24, [=] { return call(binding(bind, ingress_acl, 0, north)); }},
        {"bound to an unknown ACL", 21, [=] { return call(binding(bind, 9, 0, south)); }},
        {"bound in the other direction", 13, [=] { return call(binding(bind, egress_acl, 0, south)); }},
        {"bound in no direction", 14, [=] { return call(binding(bind, ingress_acl, 2, south)); }},
        {"binding edited", 10, [=] { return call(binding(KY_ACCESS_CMD_EDIT, ingress_acl, 0, south)); }},
        {"unbound without a binding", 23, [=] { return call(binding(unbind, ingress_acl, 0, south)); }},
        {"unbound from another ACL", 23, [=] { return call(binding(unbind, egress_acl, 0, north)); }},
        {"binding read with an ACL passed", 13, [=] { return call(binding(get, ingress_acl, 0, north)); }},
        {"unknown group destroyed", 21, [=] { return call(group(destroy, 9, 7)); }},
        {"group destroyed with a VLAN in it", 29, [=] { return call(group(destroy, 1, 7)); }},
        {"VLAN in the group twice", 22, [=] { return call(group(add, 1, 7)); }},
        {"VLAN that is not in the group deleted", 21, [=] { return call(group(remove, 1, 8)); }},
        {"VLAN 0 in a group", 14, [=] { return call(group(add, 1, 0)); }},
        {"left a VLAN without membership", 21,
         [=] {
             return vlans(remove, north, {{100, 0, 0}, {7, 0, 0}});
         }},
        {"joined a VLAN twice at once", 13,
         [=] {
             return vlans(add, north, {{8, 0, 0}, {8, 0, 0}});
         }},
        {"joined VLAN 4095", 14,
         [=] {
             return vlans(add, north, {{4095, 0, 0}});
         }},
        {"joined with mode 2", 14,
         [=] {
             return vlans(add, north, {{8, 0, 2}});
         }},
        {"joined with a byte set", 13,
         [=] {
             return vlans(add, north, {{8, 1, 0}});
         }},
        {"joined three VLANs", 14, [=] { return vlans(add, north, std::vector<ky_vlan_entry_t>(3)); }},
        {"region edited", 10, [=] { return call(region(KY_ACCESS_CMD_EDIT, 4, 0)); }},
        {"ACL edited", 10, [=] { return call(acl(KY_ACCESS_CMD_EDIT, 0, 0, 1)); }},
        {"VLANs set", 10,
         [=] {
             return vlans(set, north, {{8, 0, 0}});
         }},
        {"SWID set", 10, [=] { return port_swid_alloc_get(set, north, &byte); }},
        {"LAG state into NULL", 12, [=] { return port_lag_member_state_get(get, north, nullptr); }},
        {"SWID 256", 14, [=] { return sdk_validate_swid(256); }},
        {"spanning-tree mode set", 10, [=] { return mstp_mode_get(set, 0, &number); }},
        {"RSTP state 3", 14, [=] { return rstp_port_state_set(set, north, &(number = 3)); }},
        {"RSTP state got by the setter", 10, [=] { return rstp_port_state_set(get, north, &(number = 0)); }},
        {"unknown event", 26, [=] { return adviser_register_event(1, 10, callback); }},
        {"adviser's first argument 0", 13, [=] { return adviser_register_event(0, 9, callback); }},
        {"no callback", 12, [=] { return adviser_register_event(1, 9, nullptr); }},
        {"foreign memory put", 13, [=] { return utils_memory_put(&somebodys, 8); }},
        {"memory into NULL", 12, [=] { return utils_clr_memory_get(nullptr, 1, 8, 8); }},
        {"memory of no bytes", 13,
         [=] {
             void *memory = nullptr;
             return utils_clr_memory_get(&memory, 1, 0, 8);
         }},
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

TEST_F(Sdk, ReportsWhereARecordIsOdd)
{
    auto rule = written_rule(ingress_region, 2);
    rule.reserved_150[6239] = 0xAB;
    EXPECT_EQ(call(rule), 13U);
    EXPECT_EQ(device().violations.back(), "call 12 acl_rules_set: byte 0x19AF of the record is 0xAB, expected 0x00");
}

TEST_F(Sdk, KeepsARegionThatHoldsRules)
{
    call(binding(KY_ACCESS_CMD_UNBIND, egress_acl, KY_ACL_DIRECTION_EGRESS, north));
    EXPECT_EQ(call(acl(KY_ACCESS_CMD_DESTROY, egress_acl, KY_ACL_DIRECTION_EGRESS, egress_region)), 0U);
    EXPECT_EQ(call(region(KY_ACCESS_CMD_DESTROY, 4, egress_region)), 29U);
    EXPECT_EQ(device().violations.size(), 1U);
    EXPECT_EQ(call(erased_rule(egress_region, 1)), 0U);
    EXPECT_EQ(call(region(KY_ACCESS_CMD_DESTROY, 4, egress_region)), 0U);
}

TEST_F(Sdk, AnswersWhatAUserMayAsk)
{
    std::uint8_t byte = 0;
    std::uint32_t state = 1;
    EXPECT_EQ(port_db_check_port_mode_router_port(stranger), 21U);
    EXPECT_EQ(port_swid_alloc_get(KY_ACCESS_CMD_GET, stranger, &byte), 21U);
    EXPECT_EQ(port_lag_member_state_get(KY_ACCESS_CMD_GET, stranger, &byte), 21U);
    EXPECT_EQ(rstp_port_state_get(KY_ACCESS_CMD_GET, stranger, &state), 21U);
    EXPECT_EQ(rstp_port_state_set(KY_ACCESS_CMD_SET, stranger, &state), 21U);
    EXPECT_EQ(vlans(KY_ACCESS_CMD_ADD, stranger, {{8, 0, 0}}), 21U);
    EXPECT_EQ(call(binding(KY_ACCESS_CMD_BIND, ingress_acl, 0, stranger)), 21U);
    EXPECT_EQ(call(binding(KY_ACCESS_CMD_GET, 0, 0, south)), 21U);
    EXPECT_EQ(sdk_validate_swid(3), 13U);
    EXPECT_EQ(bridge_port_set(KY_ACCESS_CMD_DELETE, 1, north, 100, 0, 1), 13U);

    device().ports.find(south)->router_port = true;
    device().ports.find(south)->lag_member = true;
    device().ports.find(south)->swid = 3;
    device().ports.find(south)->rstp_state = sdk::RstpState::discarding;
    device().mstp_modes[3] = 1;
    EXPECT_EQ(port_db_check_port_mode_router_port(south), 0U);
    EXPECT_EQ(port_swid_alloc_get(KY_ACCESS_CMD_GET, south, &byte), 0U);
    EXPECT_EQ(byte, 3);
    EXPECT_EQ(port_lag_member_state_get(KY_ACCESS_CMD_GET, south, &byte), 0U);
    EXPECT_EQ(byte, 1);
    EXPECT_EQ(mstp_mode_get(KY_ACCESS_CMD_GET, 3, &state), 0U);
    EXPECT_EQ(state, 1U);
    EXPECT_EQ(mstp_mode_get(KY_ACCESS_CMD_GET, 0, &state), 0U);
    EXPECT_EQ(state, std::uint32_t{KY_MSTP_MODE_RSTP});
    EXPECT_EQ(rstp_port_state_get(KY_ACCESS_CMD_GET, south, &state), 0U);
    EXPECT_EQ(state, 0U);
    EXPECT_EQ(device().violations, std::vector<std::string>{});
}

TEST_F(Sdk, JoinsAgainAndTellsOfLeaves)
{
    std::vector<std::uint16_t> left;
    device().vlans.on_leave = [&left](std::uint32_t, std::uint16_t vlan) { left.push_back(vlan); };
    EXPECT_EQ(vlans(KY_ACCESS_CMD_ADD, north, {{100, 0, KY_EGRESS_MODE_UNTAGGED}, {7, 0, KY_EGRESS_MODE_TAGGED}}), 0U);
    EXPECT_EQ(device().vlans.find(north, 100)->mode, std::uint32_t{KY_EGRESS_MODE_UNTAGGED});
    EXPECT_EQ(device().vlans.find(north, 100)->call, device().journal.count());
    EXPECT_EQ(vlans(KY_ACCESS_CMD_DELETE, north, {{100, 0, 0}, {7, 0, 0}}), 0U);
    EXPECT_EQ(left, (std::vector<std::uint16_t>{100, 7}));
    EXPECT_TRUE(device().vlans.members().empty());
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

// ---- Memory, adviser, log -------------------------------------------------------------------------

TEST_F(Sdk, AccountsMemory)
{
    void *memory = nullptr;
    ASSERT_EQ(utils_clr_memory_get(&memory, 2, 8, 8), 0U);
    EXPECT_EQ(std::memcmp(memory, std::string(16, '\0').data(), 16), 0);
    void *raw = cl_malloc(100);
    EXPECT_EQ(device().memory.bytes(), 116U);
    cl_free(nullptr);
    EXPECT_EQ(device().violations.size(), 0U);

    EXPECT_EQ(utils_memory_put(memory, 9), 13U);
    EXPECT_EQ(device().memory.bytes(), 116U);
    EXPECT_EQ(utils_memory_put(memory, 8), 0U);
    EXPECT_EQ(utils_memory_put(memory, 8), 13U);
    cl_free(raw);
    cl_free(raw);
    EXPECT_EQ(device().memory.bytes(), 0U);
    EXPECT_EQ(device().violations.size(), 3U);

    sdk::set_limits(4, 2);
    EXPECT_NE(cl_malloc(1), nullptr);
    device().reset(); // and a leak checker finds nothing
    EXPECT_EQ(device().memory.bytes(), 0U);
    EXPECT_EQ(rm_resource_global.max_bridges, 4094U);
    EXPECT_EQ(rm_resource_global.max_log_ports, 256U);
}

TEST_F(Sdk, DeliversEventsToWhomRegistered)
{
    static std::vector<std::uint32_t> delivered;
    delivered.clear();
    const ky_adviser_callback_t first = [](std::uint32_t type, const ky_port_event_t *) -> ky_status_t {
        delivered.push_back(type);
        return 5;
    };
    const ky_adviser_callback_t second = [](std::uint32_t, const ky_port_event_t *event) -> ky_status_t {
        delivered.push_back(event->log_port);
        return 6;
    };
    EXPECT_EQ(adviser_register_event(1, 9, first), 0U);
    EXPECT_EQ(adviser_register_event(1, 9, first), 0U); // kept once
    EXPECT_EQ(adviser_register_event(1, 9, second), 0U);
    ky_port_event_t event{};
    event.log_port = north;
    EXPECT_EQ(device().adviser.deliver(9, event), 5U);
    EXPECT_EQ(delivered, (std::vector<std::uint32_t>{9, north}));
    EXPECT_EQ(device().adviser.deliver(12, event), 0U);
}

TEST_F(Sdk, FormatsLogLines)
{
    ky_log(KY_LOG_ERROR, "BRIDGE", "nobody listens\n");
    std::vector<sdk::LogLine> lines;
    device().log = [&lines](const sdk::LogLine &line) { lines.push_back(line); };
    const std::string lengthy(1000, 'x');
    ky_log(KY_LOG_NOTICE, "BRIDGE", "port (0x%08X) %s\n", north, lengthy.c_str());
    ky_log(2, "BRIDGE", "odd\n");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].severity, std::uint32_t{KY_LOG_NOTICE});
    EXPECT_EQ(lines[0].module, "BRIDGE");
    EXPECT_EQ(lines[0].format, "port (0x%08X) %s\n");
    EXPECT_EQ(lines[0].text, "port (0x00010001) " + lengthy + "\n");
    EXPECT_EQ(lines[1].text, "odd\n");
    EXPECT_EQ(device().violations, std::vector<std::string>{"ky_log: severity 2 is unknown"});
}

// ---- Planned faults -------------------------------------------------------------------------------

TEST_F(Sdk, FailsTheNthCallOfAService)
{
    const std::string before = device().snapshot();
    EXPECT_TRUE(device().faults.fail(Service::acl_rules_set, 2, 200));
    std::uint32_t mode = 99;
    EXPECT_EQ(mstp_mode_get(KY_ACCESS_CMD_GET, 0, &mode), 0U); // another service does not count
    EXPECT_EQ(call(written_rule(ingress_region, 3)), 0U);
    EXPECT_EQ(call(written_rule(9, 9)), 200U); // not looked at
    EXPECT_EQ(call(written_rule(ingress_region, 3)), 0U);
    EXPECT_FALSE(device().faults.pending());
    EXPECT_EQ(device().snapshot(), before);
    EXPECT_EQ(device().violations, std::vector<std::string>{});
    EXPECT_TRUE(device().journal.find(14)->planned);
    EXPECT_FALSE(device().journal.find(15)->planned);

    device().faults.fail(Service::cl_malloc, 1, 0);
    EXPECT_EQ(cl_malloc(8), nullptr);
    device().faults.fail(Service::bridge_port_set, 1, 0); // success, with nothing done
    device().bridge_port_set = [](auto...) -> ky_status_t { return 77; };
    EXPECT_EQ(bridge_port_set(KY_ACCESS_CMD_DELETE, 1, north, 100, 0, 1), 0U);
    EXPECT_EQ(bridge_port_set(KY_ACCESS_CMD_DELETE, 1, north, 100, 0, 1), 77U);

    EXPECT_FALSE(device().faults.fail(Service::cl_free, 1, 5));
    EXPECT_FALSE(device().faults.fail(Service::acl_set, 0, 5));
    EXPECT_FALSE(device().faults.fail_any(0, 5));
    EXPECT_FALSE(device().faults.pending());
}

TEST_F(Sdk, FailsTheNthCallOfAny)
{
    std::uint8_t swid = 9;
    device().faults.fail_any(2, 41);
    device().faults.fail_any(3, 42);
    device().faults.fail(Service::port_swid_alloc_get, 1, 43); // falls together with the second of any: later
    void *raw = cl_malloc(8);
    cl_free(raw); // cannot fail and does not count
    EXPECT_EQ(port_swid_alloc_get(KY_ACCESS_CMD_GET, north, &swid), 41U);
    EXPECT_EQ(swid, 9);
    EXPECT_EQ(port_db_check_port_mode_router_port(north), 0U); // claims a router port
    EXPECT_FALSE(device().faults.pending());
    device().faults.fail(Service::port_db_check_port_mode_router_port, 1, 44);
    EXPECT_EQ(port_db_check_port_mode_router_port(north), 44U);
}

// ---- Journal --------------------------------------------------------------------------------------

TEST_F(Sdk, JournalsTheBytesOfARecord)
{
    ky_acl_region_params_t record = region(KY_ACCESS_CMD_CREATE, 8, 0);
    ASSERT_EQ(acl_region_set(&record, 4, 0, 0), 0U);
    const sdk::Call &made = device().journal.calls().back();
    const auto asked = region(KY_ACCESS_CMD_CREATE, 8, 0), answered = region(KY_ACCESS_CMD_CREATE, 8, 3);
    ASSERT_EQ(made.sent.size(), sizeof asked);
    EXPECT_EQ(std::memcmp(made.sent.data(), &asked, sizeof asked), 0);
    EXPECT_EQ(std::memcmp(made.returned.data(), &answered, sizeof answered), 0);
    EXPECT_EQ(made.arguments, (std::vector<std::uint64_t>{4, 0, 0}));
    EXPECT_EQ(device().journal.find(5)->sent.size(), 6576U);
    EXPECT_EQ(device().journal.find(11)->sent.size(), 14U);
}

TEST_F(Sdk, JournalsCallsWithinCallsBehindThem)
{
    device().bridge_port_set = [](auto...) { return port_db_check_port_mode_router_port(north); };
    device().journal.clear();
    bridge_port_set(KY_ACCESS_CMD_DELETE, 1, north, 100, 0, 1);
    sdk_validate_swid(0);
    const auto &calls = device().journal.calls();
    ASSERT_EQ(calls.size(), 3U);
    EXPECT_EQ(calls[0].service, Service::bridge_port_set);
    EXPECT_EQ(calls[0].number + 1, calls[1].number);
    EXPECT_EQ(calls[0].depth, 0U);
    EXPECT_EQ(calls[1].depth, 1U);
    EXPECT_EQ(calls[2].depth, 0U);
}

TEST_F(Sdk, KeepsAsManyCallsAsAsked)
{
    device().journal.keep(2);
    EXPECT_EQ(device().journal.find(9), nullptr);
    EXPECT_EQ(device().journal.find(10)->service, Service::acl_vlan_group_set);
    sdk_validate_swid(0);
    EXPECT_EQ(device().journal.find(10), nullptr);
    EXPECT_EQ(device().journal.calls().size(), 2U);

    device().journal.keep(0);
    std::vector<std::string> heard;
    device().on_call = [&heard](const sdk::Call &made) { heard.push_back(describe(made)); };
    sdk_validate_swid(1);
    EXPECT_EQ(heard, std::vector<std::string>{"swid_validation SWID 1 -> 13"});
    EXPECT_TRUE(device().journal.calls().empty());
    EXPECT_EQ(device().journal.count(), 13U);
}

TEST_F(Sdk, DescribesCalls)
{
    std::uint8_t byte = 0;
    std::uint32_t number = 0;
    void *memory = nullptr;
    const ky_adviser_callback_t callback = [](std::uint32_t, const ky_port_event_t *) -> ky_status_t { return 0; };
    call(erased_rule(ingress_region, 3));
    device().faults.fail(Service::acl_rules_set, 1, 5);
    call(written_rule(ingress_region, 3));
    call(binding(KY_ACCESS_CMD_GET, 0, KY_ACL_DIRECTION_EGRESS, north));
    call(binding(KY_ACCESS_CMD_UNBIND, egress_acl, KY_ACL_DIRECTION_EGRESS, north));
    call(binding(KY_ACCESS_CMD_GET, 0, KY_ACL_DIRECTION_EGRESS, north));
    call(acl(KY_ACCESS_CMD_DESTROY, egress_acl, KY_ACL_DIRECTION_EGRESS, egress_region));
    call(region(KY_ACCESS_CMD_DESTROY, 4, egress_region));
    call(group(KY_ACCESS_CMD_DESTROY, 1, 7));
    port_db_check_port_mode_router_port(north);
    port_swid_alloc_get(KY_ACCESS_CMD_GET, north, &byte);
    port_lag_member_state_get(KY_ACCESS_CMD_GET, north, &byte);
    bridge_port_set(KY_ACCESS_CMD_DELETE, 2, north, 100, KY_EGRESS_MODE_UNTAGGED, 1);
    vlans(KY_ACCESS_CMD_ADD, north, {{100, 0, KY_EGRESS_MODE_TAGGED}, {1, 0, KY_EGRESS_MODE_UNTAGGED}});
    mstp_mode_get(KY_ACCESS_CMD_GET, 0, &number);
    rstp_port_state_get(KY_ACCESS_CMD_GET, north, &number);
    rstp_port_state_set(KY_ACCESS_CMD_SET, north, &number);
    adviser_register_event(1, 12, callback);
    utils_clr_memory_get(&memory, 1, 64, 8);
    utils_memory_put(memory, 8);
    cl_free(cl_malloc(14));

    std::vector<std::string> words;
    for (const sdk::Call &made : device().journal.calls()) {
        words.push_back(describe(made));
    }
    const std::vector<std::string> expected = {
        "acl_region_set CREATE size 4: region 1",
        "acl_set CREATE ingress on region 1: ACL 1",
        "acl_region_set CREATE size 4: region 2",
        "acl_set CREATE egress on region 2: ACL 2",
        "acl_rules_set SET region 1 offset 3: port 0x00010001 vlan 100 -> vlan 7, don't learn",
        "acl_rules_set SET region 2 offset 1: any port vlan 100 -> vlan 7, don't learn",
        "acl_bind_port BIND port 0x00010001 ingress to ACL 1",
        "acl_bind_port BIND port 0x00010001 egress to ACL 2",
        "vlan_port_multi_vlans_set ADD port 0x00010001: vlan 100 tagged",
        "acl_vlan_group_set CREATE: group 1",
        "acl_vlan_group_set ADD group 1 vlan 7",
        "acl_rules_set DELETE region 1 offset 3",
        "acl_rules_set SET region 1 offset 3: port 0x00010001 vlan 100 -> vlan 7, don't learn -> 5 (planned fault)",
        "acl_bind_port_get GET port 0x00010001 egress: ACL 2",
        "acl_unbind_port UNBIND port 0x00010001 egress from ACL 2",
        "acl_bind_port_get GET port 0x00010001 egress -> 21",
        "acl_set DESTROY ACL 2 egress on region 2",
        "acl_region_set DESTROY region 2, size 4 -> 29",
        "acl_vlan_group_set DESTROY group 1 -> 29",
        "port_db_check_port_mode_router_port port 0x00010001: no router port -> 21",
        "port_swid_alloc_get GET port 0x00010001: SWID 0",
        "port_lag_member_state_get GET port 0x00010001: no LAG member",
        "bridge_port_set DELETE bridge 2 port 0x00010001 vlan 100 untagged is_internal 1 -> 13",
        "vlan_port_multi_vlans_set ADD port 0x00010001: vlan 100 tagged, vlan 1 untagged",
        "mstp_mode_get GET SWID 0: mode 2",
        "rstp_port_state_get GET port 0x00010001: forwarding",
        "rstp_port_state_set SET port 0x00010001: forwarding",
        "adviser_register_event event 12",
        "utils_clr_memory_get 1 x 64 bytes, tag 8",
        "utils_memory_put 64 bytes, tag 8",
        "cl_malloc 14 bytes",
        "cl_free 14 bytes",
    };
    EXPECT_EQ(words, expected);
}

TEST_F(Sdk, NamesEveryService)
{
    for (unsigned number = 0; number < sdk::service_count; ++number) {
        EXPECT_EQ(sdk::find_service(name(static_cast<Service>(number))), static_cast<Service>(number));
    }
    EXPECT_EQ(sdk::find_service("ky_log"), std::nullopt);
}

TEST_F(Sdk, SnapshotTellsHardwareApart)
{
    const std::string before = device().snapshot(), loosely = device().snapshot(false);
    EXPECT_EQ(before, "ACL 1: ingress on region 1\n"
                      "ACL 2: egress on region 2\n"
                      "RSTP state of port 0x00010001: forwarding\n"
                      "RSTP state of port 0x00010002: forwarding\n"
                      "VLAN group 1: 7\n"
                      "binding of port 0x00010001 egress: ACL 2\n"
                      "binding of port 0x00010001 ingress: ACL 1\n"
                      "region 1: size 4\n"
                      "region 2: size 4\n"
                      "rule in region 1 offset 3: port 0x00010001 vlan 100 -> vlan 7, don't learn\n"
                      "rule in region 2 offset 1: any port vlan 100 -> vlan 7, don't learn\n"
                      "vlan 100: port 0x00010001 tagged\n");
    call(erased_rule(ingress_region, 3));
    EXPECT_NE(device().snapshot(false), loosely);
    call(written_rule(ingress_region, 2));
    EXPECT_NE(device().snapshot(), before);
    EXPECT_EQ(device().snapshot(false), loosely);
    call(erased_rule(ingress_region, 2));
    call(written_rule(ingress_region, 3));
    EXPECT_EQ(device().snapshot(), before); // whatever the calls' numbers
}

TEST_F(Sdk, FindsTheRulesThatActOnAPort)
{
    EXPECT_EQ(device().acl.region_of(north, sdk::Direction::ingress), &device().acl.regions.at(ingress_region));
    EXPECT_EQ(device().acl.region_of(north, sdk::Direction::egress), &device().acl.regions.at(egress_region));
    EXPECT_EQ(device().acl.region_of(south, sdk::Direction::ingress), nullptr);
    EXPECT_TRUE(device().acl.regions.at(ingress_region).rules.at(3).matches(north, 100));
    EXPECT_FALSE(device().acl.regions.at(ingress_region).rules.at(3).matches(south, 100));
    EXPECT_TRUE(device().acl.regions.at(egress_region).rules.at(1).matches(south, 100));
    EXPECT_FALSE(device().acl.regions.at(egress_region).rules.at(1).matches(south, 101));
}

} // namespace
