// The texts of statuses and commands, what each verbosity writes, and the form of a line of each kind.
#include <limits>
#include <map>
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

class LogTest : public ModuleTest {
protected:
    /// The trace as calls, "f(g() h())", with a * for each other line. Forgets the log.
    std::string take_trace()
    {
        static const std::regex form(R"((\w+): \1: ([\[\]])\n)");
        std::string trace;
        Lines open;
        for (const sdk::LogLine &line : log) {
            std::smatch parts;
            if (!std::regex_search(line.text, parts, form))
                trace += " *";
            else if (parts[2] == "[") {
                trace += (trace.empty() || trace.back() == '(' ? "" : " ") + parts[1].str() + "(";
                open.push_back(parts[1]);
            } else if (!open.empty() && open.back() == parts[1]) {
                trace += ")";
                open.pop_back();
            } else
                trace += " exit of " + parts[1].str() + "!";
        }
        log.clear();
        return trace;
    }
};

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
    const auto expect_text = [this](ky_status_t status, const std::string &text) {
        device.faults.fail(Service::adviser_register_event, 1, status);
        EXPECT_EQ(start(1, 1), status);
        EXPECT_EQ(take_log(), Lines{"Failed in adviser_register_event (port_add_into_swid), error: " + text + " \n"});
    };
    for (ky_status_t status = 1; status < texts.size(); ++status)
        expect_text(status, texts[status]);
    for (const ky_status_t status : {102U, 0x80000000U, highest})
        expect_text(status, "Unknown return code");
}

// A refused command is named as the SDK's users know it.
TEST_F(LogTest, EveryCommandHasItsText)
{
    const Lines texts =
        split("NONE|ADD|EDIT|DELETE|DELETE ALL|SOFT-ADD|SOFT-EDIT|SOFT-DELETE|TEST|APPLY|ENABLE|DISABLE|CREATE|"
              "DESTROY|COUNT|SET|UNSET|GET|GETNEXT|REGISTER|DEREGISTER|GET ALL|TEST HW|ADD PORTS|DELETE PORTS|BIND|"
              "UNBIND|GET FIRST|REPLACE_ALL_PORTS|DELETE_ALL_PORTS|READY|READ|READ CLEAR|CLEAR|DELETE_PORT");
    ASSERT_EQ(start(), 0U);
    const auto refusal = [this](ky_access_cmd_t cmd) {
        std::uint16_t bridge_id = 1;
        const bool of_bridges = cmd == KY_ACCESS_CMD_CREATE || cmd == KY_ACCESS_CMD_DESTROY;
        forget();
        EXPECT_EQ(of_bridges ? ky_bridge_port_set(cmd, 1, port_a, 1, 0, 0) : ky_bridge_set(cmd, &bridge_id, 0),
                  KY_STATUS_CMD_UNSUPPORTED);
        return take_log();
    };
    for (ky_access_cmd_t cmd = 0; cmd < texts.size(); ++cmd)
        EXPECT_EQ(refusal(cmd), Lines{"cmd unsupported (" + texts[cmd] + ").\n"});
    for (const ky_access_cmd_t cmd : {35U, 0x80000001U, highest})
        EXPECT_EQ(refusal(cmd), Lines{"cmd unsupported (UNKNOWN).\n"});
}

TEST_F(LogTest, VerbosityDecidesWhichKindsAreWritten)
{
    EXPECT_EQ(verbosity_at_load, 3U);

    const std::map<std::uint32_t, std::uint32_t> thresholds = {{1, 1}, {7, 3}, {31, 5}, {63, 6}}; // by severity
    for (const std::uint32_t level : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, highest}) {
        EXPECT_EQ(ky_bridge_log_verbosity_level_set(level), 0U);
        std::uint32_t stored = 77;
        EXPECT_EQ(ky_bridge_log_verbosity_level_get(&stored), 0U);
        EXPECT_EQ(stored, level);
        ky_bridge_sdk_mode_t mode;
        EXPECT_EQ(ky_bridge_mode_get(&mode), 0U);                               // a debug line
        EXPECT_EQ(start_mode(KY_BRIDGE_SDK_MODE_802_1Q, 1, 1), 0U);             // a notice and trace lines
        EXPECT_EQ(destroy_bridge(1), std::uint32_t{KY_STATUS_ENTRY_NOT_FOUND}); // an error
        EXPECT_EQ(ky_bridge_deinit(), 0U);
        std::set<std::uint32_t> written, expected;
        for (const auto &[severity, threshold] : thresholds)
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
    EXPECT_EQ(start_mode(3, 1, 1), KY_STATUS_PARAM_ERROR);
    const std::tuple<std::uint32_t, std::string, std::string> forms[] = {
        {63, "%s[%d]- %s: %s: [\n", R"([a-z_]+\.cpp\[\d+\]- ky_bridge_set: ky_bridge_set: \[\n)"},
        {31, "%s[%d]- %s: bridge_db is not initiatesd.\n",
         R"([a-z_]+\.cpp\[\d+\]- ky_bridge_set: bridge_db is not initiatesd\.\n)"},
        {63, "%s[%d]- %s: %s: ]\n", R"([a-z_]+\.cpp\[\d+\]- ky_bridge_set: ky_bridge_set: \]\n)"},
        {63, "%s[%d]- %s: %s: [\n", R"([a-z_]+\.cpp\[\d+\]- ky_bridge_init: ky_bridge_init: \[\n)"},
        {1, "SDK mode in not supported.\n", R"(SDK mode in not supported\.\n)"},
    };
    ASSERT_EQ(log.size(), std::size(forms) + 1);
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
    ASSERT_EQ(start(), 0U);
    EXPECT_EQ(take_trace(), "ky_bridge_init( * __bridge_db_init() __allocate_region() "
                            "__allocate_egress_regions(__allocate_region()))");
    ky_bridge_sdk_mode_t mode;
    ASSERT_EQ(ky_bridge_mode_get(&mode) | ky_bridge_log_verbosity_level_get(&mode), 0U);
    EXPECT_EQ(take_trace(), "");
    ASSERT_EQ(announce(port_a), 0U);
    EXPECT_EQ(take_trace(), "__bridge_port_add_swid_callbacks(__bridge_db_alloc_log_port() "
                            "__bridge_bind_port_to_acl())");
    create_bridge();
    log.clear();
    ASSERT_EQ(ky_bridge_deinit(), 0U);
    EXPECT_EQ(take_trace(), "ky_bridge_deinit(ky_bridge_clear_port(__bridge_db_get_log_port() "
                            "__bridge_unbind_port_from_acl() __bridge_db_free_log_port()) "
                            "__bridge_db_free_int_vlan() __bridge_db_free_bridge() __bridge_db_deinit())");
    device.faults.fail(Service::acl_region_set, 2, KY_STATUS_ERROR);
    ASSERT_EQ(start(), KY_STATUS_ERROR);
    EXPECT_EQ(take_trace(), "ky_bridge_init( * __bridge_db_init() __allocate_region() "
                            "__allocate_egress_regions(__allocate_region( *) *) __deallocate_region() "
                            "__bridge_db_deinit())");
}

} // namespace
