// The texts of statuses and commands, what each verbosity writes, and the form of a line of each kind.
#include <limits>
#include <regex>
#include <set>
#include <sstream>

#include "support/module_fixture.h"

namespace {

using sdk::Service;
using Lines = std::vector<std::string>;

constexpr std::uint32_t highest = std::numeric_limits<std::uint32_t>::max();

const std::uint32_t verbosity_at_load = [] {
    std::uint32_t level = highest;
    ky_bridge_log_verbosity_level_get(&level);
    return level;
}();

Lines split(const std::string &texts)
{
    Lines parts;
    std::istringstream stream(texts);
    for (std::string part; std::getline(stream, part, '|');)
        parts.push_back(part);
    return parts;
}

class LogTest : public ModuleTest {};

// A failed start tells the user why by the text of whatever status came back, of other SDK modules too.
TEST_F(LogTest, EveryStatusHasItsText)
{
    Lines texts =
        split("Success|Internal Error|Ondera SDK wasn't Initialized|Invalid Handle|Communication Error|"
              "No More Resources|No More Memory|Memory Error|Command Error|Command Not Completed|"
              "Command Unsupported|Command Unpermitted|Parameter NULL|Parameter Error|Parameter Exceeds Range|"
              "Message Size Exceeds Limit|Message Size Exceeds Limit|Database Already Initialized|"
              "Database Wasn't Initialized|Database Not Empty|End of Database|Entry Not Found|Entry Already Exists|"
              "Entry Not Bound|Entry Already bound|Wrong Policer Type|Unexpected event type|Trap ID not configured|"
              "Internal Communication close|Resource is in use|"
              "Trap ID is already associated to another trap priority|Already initialized|TIMEOUT|"
              "Module is uninitialized|Operation Unsupported|Utils return status is Non-Zero|Partially complete");
    texts.resize(101);
    texts.emplace_back("Driver's Return Status is Non-Zero");
    ky_bridge_log_verbosity_level_set(1);
    for (ky_status_t status = 1; status < texts.size() + 2; ++status) {
        const std::string text = status < texts.size() ? texts[status] : "Unknown return code";
        device.faults.fail(Service::adviser_register_event, 1, status);
        EXPECT_EQ(start(1, 1), status);
        EXPECT_EQ(take_log(), Lines{"Failed in adviser_register_event (port_add_into_swid), error: " + text + " \n"});
    }
}

// A refused command is named as the SDK's users know it.
TEST_F(LogTest, EveryCommandHasItsText)
{
    const Lines texts =
        split("NONE|ADD|EDIT|DELETE|DELETE ALL|SOFT-ADD|SOFT-EDIT|SOFT-DELETE|TEST|APPLY|ENABLE|DISABLE|CREATE|"
              "DESTROY|COUNT|SET|UNSET|GET|GETNEXT|REGISTER|DEREGISTER|GET ALL|TEST HW|ADD PORTS|DELETE PORTS|BIND|"
              "UNBIND|GET FIRST|REPLACE_ALL_PORTS|DELETE_ALL_PORTS|READY|READ|READ CLEAR|CLEAR|DELETE_PORT");
    ASSERT_EQ(start(), 0U);
    for (ky_access_cmd_t cmd = 0; cmd < texts.size() + 2; ++cmd) {
        std::uint16_t bridge_id = 1;
        const bool of_bridges = cmd == KY_ACCESS_CMD_CREATE || cmd == KY_ACCESS_CMD_DESTROY;
        forget();
        EXPECT_EQ(of_bridges ? ky_bridge_port_set(cmd, 1, port_a, 1, 0, 0) : ky_bridge_set(cmd, &bridge_id, 0),
                  KY_STATUS_CMD_UNSUPPORTED);
        EXPECT_EQ(take_log(), Lines{"cmd unsupported (" + (cmd < texts.size() ? texts[cmd] : "UNKNOWN") + ").\n"});
    }
    ky_bridge_log_verbosity_level_set(0);
    EXPECT_EQ(ky_bridge_port_set(40, 1, port_a, 1, 0, 0), KY_STATUS_CMD_UNSUPPORTED);
    std::uint16_t bridge_id = 1;
    EXPECT_EQ(ky_bridge_set(40, &bridge_id, 0), KY_STATUS_CMD_UNSUPPORTED);
    EXPECT_EQ(take_log(), Lines{});
}

TEST_F(LogTest, VerbosityDecidesWhichKindsAreWritten)
{
    EXPECT_EQ(verbosity_at_load, 3U);
    const std::uint32_t kinds[][2] = {{1, 1}, {7, 3}, {31, 5}, {63, 6}}; // severity, from which verbosity on
    std::uint32_t stored = highest;
    for (const std::uint32_t level : {0U, 1U, 2U, 3U, 4U, 5U, 6U, highest}) {
        EXPECT_EQ(ky_bridge_log_verbosity_level_set(level), 0U);
        ky_bridge_sdk_mode_t mode;
        EXPECT_EQ(ky_bridge_mode_get(&mode), 0U);                               // a debug line
        EXPECT_EQ(start_mode(KY_BRIDGE_SDK_MODE_802_1Q, 1, 1), 0U);             // a notice and trace lines
        EXPECT_EQ(destroy_bridge(1), std::uint32_t{KY_STATUS_ENTRY_NOT_FOUND}); // an error
        EXPECT_EQ(ky_bridge_deinit(), 0U);
        std::set<std::uint32_t> written, expected;
        for (const auto &[severity, threshold] : kinds)
            if (level >= threshold)
                expected.insert(severity);
        for (const sdk::LogLine &line : log)
            written.insert(line.severity);
        EXPECT_EQ(written, expected) << "at verbosity " << level;
        EXPECT_EQ(ky_bridge_log_verbosity_level_get(&stored), 0U);
        EXPECT_EQ(stored, level) << "a restart changed it";
        forget();
    }
}

// A log is read and filtered by machines too: module, format and arguments are part of the interface.
TEST_F(LogTest, LinesHaveTheFormOfTheirKind)
{
    ky_bridge_log_verbosity_level_set(6);
    EXPECT_EQ(destroy_bridge(1), 0U); // says that there is no database
    const std::tuple<std::uint32_t, std::string, std::string> forms[] = {
        {63, "%s[%d]- %s: %s: [\n", R"([a-z_]+\.cpp\[\d+\]- ky_bridge_set: ky_bridge_set: \[\n)"},
        {31, "%s[%d]- %s: bridge_db is not initiatesd.\n",
         R"([a-z_]+\.cpp\[\d+\]- ky_bridge_set: bridge_db is not initiatesd\.\n)"},
        {63, "%s[%d]- %s: %s: ]\n", R"([a-z_]+\.cpp\[\d+\]- ky_bridge_set: ky_bridge_set: \]\n)"},
    };
    ASSERT_EQ(log.size(), std::size(forms));
    for (std::size_t at = 0; at < std::size(forms); ++at) {
        const auto &[severity, format, text] = forms[at];
        EXPECT_EQ(log[at].module, "BRIDGE");
        EXPECT_EQ(log[at].severity, severity);
        EXPECT_EQ(log[at].format, format);
        EXPECT_TRUE(std::regex_match(log[at].text, std::regex(text))) << log[at].text;
    }
}

// Whoever follows a trace must see every step in and out again, failed ones too, and no other names.
TEST_F(LogTest, TheTraceNestsAsTheStepsDo)
{
    ky_bridge_log_verbosity_level_set(6);
    device.faults.fail(Service::acl_region_set, 2, KY_STATUS_ERROR);
    ASSERT_EQ(start(), KY_STATUS_ERROR);
    const auto take_trace = [this] {
        std::string trace;
        for (const std::string &line : take_log())
            trace += std::regex_replace(line, std::regex(R"(trace: (\w+): \1: (\[|\])\n)"), "$1$2 ");
        return trace;
    };
    EXPECT_EQ(take_trace(), "ky_bridge_init[ notice: SDK initiates in 802.1D mode\n"
                            "__bridge_db_init[ __bridge_db_init] __allocate_region[ __allocate_region] "
                            "__allocate_egress_regions[ __allocate_region[ Failed to set region with size (8).\n"
                            "__allocate_region] Failed to allocate egress region.\n__allocate_egress_regions] "
                            "__deallocate_region[ __deallocate_region] __bridge_db_deinit[ __bridge_db_deinit] "
                            "ky_bridge_init] ");
    device.faults.fail(Service::adviser_register_event, 1, KY_STATUS_ERROR);
    ASSERT_EQ(start(), KY_STATUS_ERROR);
    EXPECT_NE(take_trace().find("__deallocate_egress_regions[ __deallocate_region[ __deallocate_region] "
                                "__deallocate_egress_regions] __deallocate_region["),
              std::string::npos);

    ASSERT_EQ(start(), 0U);
    forget();
    announce(port_a);
    const std::uint16_t bridge_id = create_bridge();
    EXPECT_EQ(take_trace(), "__bridge_port_add_swid_callbacks[ __bridge_db_alloc_log_port[ __bridge_db_alloc_log_port] "
                            "__bridge_bind_port_to_acl[ __bridge_bind_port_to_acl] __bridge_port_add_swid_callbacks] "
                            "ky_bridge_set[ __bridge_db_alloc_bridge[ __bridge_db_alloc_bridge] "
                            "__bridge_db_alloc_int_vlan[ __bridge_db_alloc_int_vlan] "
                            "__bridge_update_rstp_state[ __bridge_update_rstp_state] ky_bridge_set] ");
    std::uint16_t answer = 0;
    for (const std::uint32_t log_port : {0U, port_a}) {
        std::uint32_t capacity = 1;
        ky_bridge_int_vlan_list_get(log_port, &answer, &capacity);
    }
    ky_bridge_int_vlan_bridge_id_get(1, &answer);
    EXPECT_EQ(take_trace(),
              "ky_bridge_int_vlan_list_get[ __bridge_db_get_int_vlan_list[ __bridge_db_get_int_vlan_list] "
              "ky_bridge_int_vlan_list_get] "
              "ky_bridge_int_vlan_list_get[ __bridge_db_get_port_int_vlan_list[ __bridge_db_get_log_port[ "
              "__bridge_db_get_log_port] debug: __bridge_db_get_port_int_vlan_list: No bridge attached to port "
              "(0x00010001).\n__bridge_db_get_port_int_vlan_list] ky_bridge_int_vlan_list_get] "
              "ky_bridge_int_vlan_bridge_id_get[ __bridge_db_get_int_vlan[ __bridge_db_get_int_vlan] "
              "ky_bridge_int_vlan_bridge_id_get] ");
    destroy_bridge(bridge_id);
    EXPECT_EQ(take_trace(), "ky_bridge_set[ __bridge_db_get_bridge[ __bridge_db_get_bridge] "
                            "__bridge_verify_empty_bridge[ __bridge_verify_empty_bridge] "
                            "__bridge_db_free_int_vlan[ __bridge_db_free_int_vlan] "
                            "__bridge_db_free_bridge[ __bridge_db_free_bridge] "
                            "__bridge_update_rstp_state[ __bridge_update_rstp_state] ky_bridge_set] ");
    EXPECT_EQ(ky_bridge_deinit(), 0U);
    EXPECT_EQ(take_trace(),
              "ky_bridge_deinit[ ky_bridge_clear_port[ __bridge_db_get_log_port[ __bridge_db_get_log_port] "
              "__bridge_unbind_port_from_acl[ __bridge_unbind_port_from_acl] __bridge_db_free_log_port[ "
              "__bridge_db_free_log_port] ky_bridge_clear_port] __bridge_db_deinit[ __bridge_db_deinit] "
              "ky_bridge_deinit] ");
}

} // namespace
