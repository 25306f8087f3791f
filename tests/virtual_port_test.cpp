// Attaching and detaching virtual ports: what is checked before anything changes, the steps in their order,
// and for every step that can be refused the undo of the steps before it.
#include <functional>
#include <optional>

#include <fmt/format.h>

#include "bridge/acl.h"
#include "support/module_fixture.h"

namespace {

using sdk::Service;
using Lines = std::vector<std::string>;

/// The calls that an addition and a deletion of port 0x10001, VLAN 100, untagged, in bridge 1 come to while
/// nothing else is attached: every use is then the first and the last one.
const std::map<std::string, std::string> calls_in_words = {
    {"acl_rules_set SET region 1 offset 1: port 0x00010001 vlan 100 -> vlan 1, don't learn", "ingress_set"},
    {"acl_rules_set DELETE region 1 offset 1", "ingress_delete"},
    {"acl_rules_set SET region 2 offset 1: any port vlan 1 -> vlan 100, don't learn", "egress_set"},
    {"acl_rules_set DELETE region 2 offset 1", "egress_delete"},
    {"acl_bind_port BIND port 0x00010001 egress to ACL 2", "bind"},
    {"acl_bind_port_get GET port 0x00010001 egress: ACL 2", "bound?"},
    {"acl_unbind_port UNBIND port 0x00010001 egress from ACL 2", "unbind"},
    {"mstp_mode_get GET SWID 0: mode 2", "rstp?"},
    {"rstp_port_state_get GET port 0x00010001: forwarding", "state?"},
    {"rstp_port_state_set SET port 0x00010001: forwarding", "state"},
    {"vlan_port_multi_vlans_set ADD port 0x00010001: vlan 100 untagged, vlan 1 untagged", "join"},
    {"vlan_port_multi_vlans_set DELETE port 0x00010001: vlan 100 untagged, vlan 1 untagged", "leave"}};

std::string in_words(const sdk::Call &call)
{
    std::string text = describe(call);
    text.erase(std::min(text.find(" -> 4 (planned fault)"), text.size()));
    const auto words = calls_in_words.find(text);
    return (words == calls_in_words.end() ? text : words->second) + (call.status != 0 ? "!" : "");
}

/// What an operation left in log and journal.
struct Outcome {
    ky_status_t status = 0;
    std::string errors; ///< the error lines, one behind the other
    std::string trace;  ///< every function entered and left, "outer{inner{}}"; "__bridge_" is left out
    std::string steps;  ///< the functions that the outermost one called itself, a blank behind each
    std::string calls;  ///< to services that change something, in words; "!" behind those that failed
};

class VirtualPortTest : public ModuleTest {
protected:
    /// What else happens in the middle of an operation, once: right after the call of that word, or when that
    /// error is logged.
    std::map<std::string, std::function<void()>> upon;

    void SetUp() override
    {
        const auto meddle = [this](const std::string &what) {
            if (const auto found = upon.extract(what))
                found.mapped()();
        };
        device.on_call = [meddle](const sdk::Call &call) { meddle(in_words(call)); };
        device.log = [this, meddle](const sdk::LogLine &line) {
            log.push_back(line);
            meddle(line.text);
        };
        ASSERT_EQ(start(), 0U);
        ASSERT_EQ(announce(port_a) | announce(port_b), 0U);
        ASSERT_EQ(create_bridge(), 1);
    }

    /// Adds or deletes the virtual port of calls_in_words. A deletion's mode is not the one that was added.
    Outcome set(ky_access_cmd_t cmd)
    {
        Outcome outcome;
        forget();
        ky_bridge_log_verbosity_level_set(6);
        outcome.status = ky_bridge_port_set(cmd, 1, port_a, 100, cmd == KY_ACCESS_CMD_ADD, 0);
        ky_bridge_log_verbosity_level_set(3);
        int depth = 0;
        for (const std::string &line : take_lines()) {
            const std::string text = line.substr(line.find(' ') + 1);
            if (line.starts_with("error: "))
                outcome.errors += text;
            if (!line.starts_with("trace: "))
                continue;
            const bool enters = text.ends_with("[\n");
            std::string function = text.substr(0, text.find(':'));
            if (function.starts_with("__bridge_"))
                function.erase(0, 9);
            outcome.trace += enters ? function + "{" : "}";
            outcome.steps += enters && depth == 1 ? function + " " : "";
            depth += enters ? 1 : -1;
        }
        for (const sdk::Call &call : device.journal.calls())
            if (call.service < Service::port_db_check_port_mode_router_port || call.service > Service::swid_validation)
                outcome.calls += (outcome.calls.empty() ? "" : " ") + in_words(call);
        return outcome;
    }
};

// A request that is wrong in every respect, mended one respect at a time: each check answers in its turn, and
// asks the port module no further than it must. A DELETE skips the two checks that only an ADD can fail.
TEST_F(VirtualPortTest, ChecksComeInTheirOrderAndChangeNothing)
{
    struct Check {
        bool add_only;
        std::uint16_t bridge, vlan;
        bool is_router, is_lag_member;
        std::optional<Service> fails;
        ky_status_t status;
        std::string message;
        std::size_t asked; ///< questions to the port module
    };
    using enum Service;
    const auto none = std::nullopt;
    const Check checks[] = {
        {false, 7, 10, true, true, none, 21, "Could not find bridge_id(7) in bridge_db.\n", 0},
        {true, 1, 10, true, true, none, 13, "In Homogenous mode all vlans in a bridge (1) must be the same (20).\n", 0},
        {true, 3, 10, true, true, none, 22, "Port(0x00010001), vlan(10) already added to a bridge.\n", 0},
        {false, 3, 4095, true, true, none, 13, "Port 0x00010001 is a router port.\n", 1},
        {false, 3, 4095, false, true, port_swid_alloc_get, 4,
         "port_swid_alloc_get failed for port 0x00010001 -(Communication Error).\n", 2},
        {false, 3, 4095, false, true, swid_validation, 4, "SWID(9) type mismatch\n", 3},
        {false, 3, 4095, false, true, port_lag_member_state_get, 4,
         "port_lag_member_state_get failed, err (Communication Error)\n", 4},
        {false, 3, 4095, false, true, none, 13, "Try to set port which is a LAG member, err (Parameter Error)\n", 4},
        {false, 3, 4095, false, false, none, 14, "vlan exceeds range [4095]\n", 4},
        {false, 3, 4094, false, false, none, 14, "Invalid egress_mode: 2", 4},
    };
    const std::map<ky_status_t, std::string> texts = {{4, "Communication Error"},
                                                      {13, "Parameter Error"},
                                                      {14, "Parameter Exceeds Range"},
                                                      {21, "Entry Not Found"},
                                                      {22, "Entry Already Exists"}};
    ASSERT_EQ(create_bridge(), 2);
    ASSERT_EQ(create_bridge(), 3);
    ASSERT_EQ(add(1, port_b, 20) | add(2, port_a, 10), 0U);
    device.bridge_swids = {9};
    const std::string before = device.snapshot();
    for (const ky_access_cmd_t cmd : {KY_ACCESS_CMD_ADD, KY_ACCESS_CMD_DELETE})
        for (const Check &check : checks) {
            if (check.add_only && cmd == KY_ACCESS_CMD_DELETE)
                continue;
            SCOPED_TRACE(fmt::format("cmd {}: {}", cmd, check.message));
            *device.ports.find(port_a) = {
                .swid = 9, .router_port = check.is_router, .lag_member = check.is_lag_member, .pvid = {}};
            if (check.fails)
                device.faults.fail(*check.fails, 1, KY_STATUS_COMM_ERROR);
            forget();
            EXPECT_EQ(ky_bridge_port_set(cmd, check.bridge, port_a, check.vlan, 2, 0), check.status);
            EXPECT_EQ(device.journal.calls().size(), check.asked);
            EXPECT_EQ(take_log(), (Lines{check.message,
                                         "__bridge_validate_get_port_set failed (" + texts.at(check.status) + ").\n"}));
        }
    EXPECT_EQ(device.snapshot(), before);
    expect_consistent();
    forget();
    EXPECT_EQ(add(3, port_a, 4094, 1), 0U);
    EXPECT_TRUE(take_services().starts_with("port_db_check_port_mode_router_port port_swid_alloc_get swid_validation "
                                            "port_lag_member_state_get acl_rules_set "));
}

TEST_F(VirtualPortTest, WhatIsNotThereOrCannotBeServedTouchesNothing)
{
    ASSERT_EQ(add(1, port_a, 10), 0U);
    forget();
    EXPECT_EQ(remove(1, port_a, 11), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(remove(1, port_b, 10), KY_STATUS_ENTRY_NOT_FOUND);
    for (const ky_access_cmd_t cmd : {2U, 4U, 40U})
        EXPECT_EQ(ky_bridge_port_set(cmd, 1, port_a, 10, 0, 0), KY_STATUS_CMD_UNSUPPORTED);
    EXPECT_EQ(take_log(), (Lines{"Could not find port(0x10001) vlan(11) in bridge(1).\n",
                                 "Could not find port(0x10002) vlan(10) in bridge(1).\n", "cmd unsupported (EDIT).\n",
                                 "cmd unsupported (DELETE ALL).\n", "cmd unsupported (UNKNOWN).\n"}));
    swid_validation_func_ptr = nullptr; // a host that forgot it gets an answer, not a jump to address 0
    EXPECT_EQ(add(1, port_b, 10), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(take_log().front(), "SWID(0) type mismatch\n");
    expect_consistent();
}

/// The steps up to one that is refused, followed by its undo.
std::string up_to(const std::string &steps, const std::string &refused, const std::string &undo)
{
    return steps.substr(0, steps.find(refused + " ") + refused.size() + 1) + undo;
}

TEST_F(VirtualPortTest, StepsNestAsTheirTraceTells)
{
    const Outcome added = set(KY_ACCESS_CMD_ADD);
    EXPECT_EQ(added.status, 0U);
    EXPECT_EQ(added.errors, "");
    EXPECT_EQ(added.calls, "ingress_set egress_set bind rstp? state? state join");
    EXPECT_EQ(added.trace, "ky_bridge_port_set{port_set_validate{db_get_bridge{}}db_alloc_virtual_port{}"
                           "create_or_update_ingress_acl_rule{}create_egress_acl_rule{db_get_log_port{}"
                           "create_homogenous_egress_acl_rule{create_or_update_egress_acl_rule{}}"
                           "bind_port_eacl{bind_port_to_acl{}}}"
                           "db_add_virtual_port_to_log_port_back_ref{db_get_log_port{}}"
                           "update_port_rstp_state{}vlan_enable{}}");
    const Outcome deleted = set(KY_ACCESS_CMD_DELETE);
    EXPECT_EQ(deleted.status, 0U);
    EXPECT_EQ(deleted.errors, "");
    EXPECT_EQ(deleted.calls, "leave bound? unbind egress_delete ingress_delete rstp? state? state");
    EXPECT_EQ(deleted.trace, "ky_bridge_port_set{port_set_validate{db_get_bridge{}}"
                             "db_get_virtual_port_from_bridge{}db_get_log_port{}vlan_disable{}"
                             "remove_egress_acl_rule{db_get_log_port{}unbind_port_eacl{unbind_port_from_acl{}}"
                             "remove_homogenous_egress_acl_rule{}}remove_ingress_acl_rule{}"
                             "db_remove_virtual_port_to_log_port_back_ref{}update_port_rstp_state{}"
                             "db_free_virtual_port{}}");
    expect_consistent();
}

// An undo that leaves a step out, or runs against the order of the steps, leaves traffic mapped into a bridge
// that the user was told it is not in; after a deletion, it cuts off a port that stays attached. Steps that only
// change the database are refused by taking their record away; what the undo does not put back, the test does.
TEST_F(VirtualPortTest, ARefusedStepIsUndoneInReverse)
{
    struct Refusal {
        ky_access_cmd_t cmd;
        std::function<void()> arrange;
        ky_status_t status;
        std::string step, undo, errors, calls;
    };
    constexpr ky_access_cmd_t add = KY_ACCESS_CMD_ADD, remove = KY_ACCESS_CMD_DELETE;
    constexpr ky_status_t comm_error = KY_STATUS_COMM_ERROR;
    using enum Service;
    const auto fail = [this](Service service, unsigned nth) {
        return [=, this] { device.faults.fail(service, nth, comm_error); };
    };
    const auto attached = [] { return bridge_record(1)->virtual_port_map.first(); };
    const auto withdraw_port = [this] {
        upon["bind"] = [] { __bridge_db_free_log_port(port_a); };
        upon["__bridge_db_get_log_port failed when adding eACL.\n"] = [this] {
            bridge_db_log_port_t *port = nullptr;
            __bridge_db_alloc_log_port(port_a, 0, &port);
            device.faults.fail(acl_bind_port, 1, KY_STATUS_SUCCESS); // it is still bound
            __bridge_bind_port_eacl(&bridge_db->egress_region, port);
            device.journal.clear();
        };
    };
    const auto take_back_reference = [&] {
        upon["ingress_delete"] = [=] {
            __bridge_db_remove_virtual_port_to_log_port_back_ref(attached(), port_record(port_a));
        };
        upon["Failed to retreive v_port from log_port.\n"] = [=] {
            bridge_db_log_port_t *port = nullptr;
            EXPECT_EQ(__bridge_db_add_virtual_port_to_log_port_back_ref(attached(), &port), 0U);
        };
    };
    const auto take_virtual_port = [&] {
        upon["state"] = [=] { __bridge_db_free_virtual_port(attached(), bridge_record(1)); };
        upon["Could not find port(0x0) in bridge(1).\n"] = [vport = attached()] {
            bridge_db_virtual_port_t *again = nullptr;
            __bridge_db_alloc_virtual_port(bridge_record(1), port_a, 100, 1, &again);
            EXPECT_EQ(again, vport);
        };
    };
    const std::string add_steps = set(add).steps, delete_steps = set(remove).steps;
    const std::string egress_back = "remove_egress_acl_rule remove_ingress_acl_rule db_free_virtual_port ";
    const std::string rules_again = "create_or_update_ingress_acl_rule create_egress_acl_rule vlan_enable ";
    const Refusal refusals[] = {
        {add, fail(acl_rules_set, 1), comm_error, "create_or_update_ingress_acl_rule", "db_free_virtual_port ",
         "acl_rules_set for ingress acl on port(0x00010001) vlan(100) bridge(1) failed.\n"
         "__bridge_create_or_update_ingress_acl_rule failed (Communication Error).\n",
         "ingress_set!"},
        {add, fail(acl_rules_set, 2), comm_error, "create_egress_acl_rule",
         "remove_ingress_acl_rule db_free_virtual_port ",
         "acl_rules_set for egress acl on vlan(100) bridge(1) failed.\n"
         "__bridge_create_homogenous_eress_acl_rule failed when adding eACL.\n"
         "__bridge_create_egress_acl_rule failed (Communication Error).\n",
         "ingress_set egress_set! ingress_delete"},
        {add, fail(acl_bind_port, 1), comm_error, "create_egress_acl_rule",
         "remove_ingress_acl_rule db_free_virtual_port ",
         "acl_bind_port to bind port [0x10001] to ACL(2) direction (1) failed.\n"
         "__bridge_bind_port_to_acl for port(0x00010001) ACL(2) failed.\n"
         "__bridge_bind_port_eacl failed when adding eACL.\n"
         "__bridge_create_egress_acl_rule failed (Communication Error).\n",
         "ingress_set egress_set bind! egress_delete ingress_delete"},
        {add, fail(rstp_port_state_set, 1), comm_error, "update_port_rstp_state",
         "db_remove_virtual_port_to_log_port_back_ref " + egress_back,
         "rstp_port_state_set failed (Communication Error).\n"
         "__bridge_update_rstp_state for port(0x10001) failed (Communication Error).\n",
         "ingress_set egress_set bind rstp? state? state! bound? unbind egress_delete ingress_delete"},
        {add, fail(vlan_port_multi_vlans_set, 1), comm_error, "vlan_enable",
         "db_remove_virtual_port_to_log_port_back_ref update_port_rstp_state " + egress_back,
         "vlan_ports_set failed when adding port to bridge.\n__bridge_vlan_enable failed (Communication Error).\n",
         "ingress_set egress_set bind rstp? state? state join! rstp? state? state bound? unbind egress_delete "
         "ingress_delete"},
        {add, withdraw_port, KY_STATUS_ENTRY_NOT_FOUND, "db_add_virtual_port_to_log_port_back_ref", egress_back,
         "__bridge_db_get_log_port failed when adding eACL.\n"
         "__bridge_db_add_virtual_port failed (Entry Not Found).\n",
         "bound? unbind egress_delete ingress_delete"},

        {remove, fail(vlan_port_multi_vlans_set, 1), comm_error, "vlan_disable", "",
         "__bridge_vlan_disable failed (Communication Error).\n", "leave!"},
        {remove, fail(acl_unbind_port, 1), comm_error, "remove_egress_acl_rule", "vlan_enable ",
         "acl_unbind_port to unbind port [0x10001] from ACL(2) direction (1) failed.\n"
         "__bridge_unbind_port_from_acl for port(0x00010001) ACL(2) failed.\n"
         "__bridge_unbind_port_eacl failed when removing eACL.\n"
         "__bridge_remove_egress_acl_rule failed (Communication Error).\n",
         "leave bound? unbind! join"},
        {remove, fail(acl_rules_set, 2), comm_error, "remove_ingress_acl_rule", "create_egress_acl_rule vlan_enable ",
         "acl_rules_set DELETE for ingress acl on vlan(100) bridge(1) failed.\n"
         "__bridge_remove_ingress_acl_rule failed (Communication Error).\n",
         "leave bound? unbind egress_delete ingress_delete! egress_set bind join"},
        {remove, fail(rstp_port_state_set, 1), comm_error, "update_port_rstp_state",
         "db_add_virtual_port_to_log_port_back_ref " + rules_again,
         "rstp_port_state_set failed (Communication Error).\n"
         "__bridge_update_rstp_state for port(0x10001) failed (Communication Error).\n",
         "leave bound? unbind egress_delete ingress_delete rstp? state? state! ingress_set egress_set bind join"},
        {remove, take_back_reference, KY_STATUS_PARAM_ERROR, "db_remove_virtual_port_to_log_port_back_ref", rules_again,
         "Failed to retreive v_port from log_port.\n"
         "__bridge_db_remove_virtual_port failed (Parameter Error).\n",
         "leave bound? unbind egress_delete ingress_delete ingress_set egress_set bind join"},
        {remove, take_virtual_port, KY_STATUS_ENTRY_NOT_FOUND, "db_free_virtual_port",
         "db_add_virtual_port_to_log_port_back_ref update_port_rstp_state " + rules_again,
         "Could not find port(0x0) in bridge(1).\n"
         "__bridge_db_return_virtual_port failed (Entry Not Found).\n",
         "leave bound? unbind egress_delete ingress_delete rstp? state? state rstp? state? state ingress_set "
         "egress_set "
         "bind join"},
    };
    for (const auto &[cmd, arrange, status, step, undo, errors, calls] : refusals) {
        SCOPED_TRACE(fmt::format("cmd {}: {}", cmd, calls));
        if (cmd == remove && attached() == nullptr) {
            ASSERT_EQ(set(add).status, 0U);
        }
        const std::string before = device.snapshot(cmd == add);
        arrange();
        const Outcome outcome = set(cmd);
        EXPECT_EQ(outcome.status, status);
        EXPECT_EQ(outcome.steps, up_to(cmd == add ? add_steps : delete_steps, step, undo));
        EXPECT_EQ(outcome.errors, errors);
        EXPECT_EQ(outcome.calls, calls);
        EXPECT_TRUE(upon.empty());
        EXPECT_EQ(device.snapshot(cmd == add), before);
        expect_consistent();
    }
}

TEST_F(VirtualPortTest, APortWithoutARecordIsMissedByTheStepThatNeedsIt)
{
    ASSERT_EQ(ky_bridge_clear_port(port_a, 1), 0U);
    EXPECT_EQ(set(KY_ACCESS_CMD_ADD).calls, "ingress_set ingress_delete");
    expect_consistent();

    ASSERT_EQ(announce(port_a), 0U);
    ASSERT_EQ(set(KY_ACCESS_CMD_ADD).status, 0U);
    ASSERT_EQ(__bridge_db_free_log_port(port_a), 0U);
    const Outcome outcome = set(KY_ACCESS_CMD_DELETE);
    EXPECT_EQ(outcome.status, KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(outcome.errors, "__bridge_db_get_log_port failed (Entry Not Found).\n");
    EXPECT_EQ(outcome.calls, "");
}

TEST_F(VirtualPortTest, WithoutAFreeRecordNoServiceIsAskedToChangeAnything)
{
    ASSERT_EQ(ky_bridge_deinit(), 0U);
    device.acl = {};
    ASSERT_EQ(start(2, 1), 0U);
    ASSERT_EQ(announce(port_a) | announce(port_b), 0U);
    ASSERT_EQ(add(create_bridge(), port_b, 100), 0U);
    const Outcome outcome = set(KY_ACCESS_CMD_ADD);
    EXPECT_EQ(outcome.status, KY_STATUS_NO_RESOURCES);
    EXPECT_EQ(outcome.errors, "Could not find free virtual port entry in bridge_db.\n"
                              "__bridge_db_alloc_virtual_port failed (No More Resources).\n");
    EXPECT_EQ(outcome.calls, "");
    expect_consistent();
}

} // namespace
