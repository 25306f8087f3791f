// What scripts do not see of the interface: bytes beside the answers, formats behind the log's lines, callbacks called
// with what no SDK would send, and more bridges than VLAN IDs.
#include <cstring>
#include <regex>
#include <sstream>

#include "bridge/bridge.h"
#include "support/module_fixture.h"

namespace {

using Lines = std::vector<std::string>;

class InterfaceTest : public ModuleTest {};

Lines split(const std::string &texts)
{
    Lines parts;
    std::istringstream stream(texts);
    for (std::string part; std::getline(stream, part, '|');)
        parts.push_back(part);
    return parts;
}

// A failed start tells the user why by the text of whatever status came back, of other SDK modules too.
TEST_F(InterfaceTest, EveryStatusHasItsText)
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
        device.faults.fail(sdk::Service::adviser_register_event, 1, status);
        EXPECT_EQ(start(1, 1), status);
        EXPECT_EQ(take_lines(),
                  Lines{"error: Failed in adviser_register_event (port_add_into_swid), error: " + text + " \n"});
    }
}

// A refused command is named as the SDK's users know it.
TEST_F(InterfaceTest, EveryCommandHasItsText)
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
        EXPECT_EQ(take_lines(),
                  Lines{"error: cmd unsupported (" + (cmd < texts.size() ? texts[cmd] : "UNKNOWN") + ").\n"});
    }
}

// A log is read and filtered by machines too: module, format and arguments are part of the interface.
TEST_F(InterfaceTest, LinesHaveTheFormOfTheirKind)
{
    ky_bridge_log_verbosity_level_set(0xFFFFFFFF);
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

// The list lies in memory of the caller: an entry too many, or a byte beside its fields, is somebody else's.
TEST_F(InterfaceTest, NothingButTheListIsWritten)
{
    ASSERT_EQ(start(), 0U);
    const std::uint16_t id = create_bridge();
    for (const std::uint32_t port : {0x0102FFFFU, 0x00010000U, port_a})
        ASSERT_EQ(announce(port) | add(id, port, 0x0ABC, port == port_a ? 1 : 0), 0U);
    constexpr std::uint8_t entries[] = {
        0x00, 0x00, 0x01, 0x00, 0xBC, 0x0A, 0xA5, 0xA5, 0, 0, 0, 0, // port, VLAN, not written, tagged
        0x01, 0x00, 0x01, 0x00, 0xBC, 0x0A, 0xA5, 0xA5, 1, 0, 0, 0, // untagged
        0xFF, 0xFF, 0x02, 0x01, 0xBC, 0x0A, 0xA5, 0xA5, 0, 0, 0, 0,
    };
    for (const std::uint32_t capacity : {0U, 1U, 3U, 99U}) {
        const std::uint32_t written = std::min(capacity, 3U);
        ky_bridge_port_t list[4], wanted[4];
        std::memset(list, 0xA5, sizeof list);
        std::memset(wanted, 0xA5, sizeof wanted);
        std::memcpy(wanted, entries, written * sizeof wanted[0]);
        std::uint32_t count = capacity;
        EXPECT_EQ(ky_bridge_port_get(id, list, &count, 0), 0U);
        EXPECT_EQ(count, capacity == 0 ? 3 : written);
        EXPECT_EQ(std::memcmp(list, wanted, sizeof wanted), 0);
    }
}

// More bridges than VLAN IDs: the bridge that gets no internal VLAN must go back.
TEST_F(InterfaceTest, WithoutAnInternalVlanThereIsNoBridge)
{
    sdk::set_limits(4095, 4);
    ASSERT_EQ(start(4095), 0U);
    for (int id = 1; id <= KY_VLAN_ID_MAX; ++id)
        ASSERT_EQ(create_bridge(), id);
    forget();
    std::uint16_t untouched = 0;
    EXPECT_EQ(ky_bridge_set(KY_ACCESS_CMD_CREATE, &untouched, 0), KY_STATUS_NO_RESOURCES);
    EXPECT_EQ(untouched, 0);
    EXPECT_EQ(take_lines(), Lines{"error: Could not find free internal vlan entry in bridge_db.\n"});
    EXPECT_EQ(destroy_bridge(1000), 0U);
    EXPECT_EQ(create_bridge(), 1000); // pools stayed in step
    std::uint16_t int_vlan = 0;
    EXPECT_EQ(ky_bridge_int_vlan_id_get(1000, &int_vlan, 0), 0U);
    EXPECT_EQ(int_vlan, 1000);
}

// Events that the module did not ask for, or that bring nothing.
TEST_F(InterfaceTest, TheCallbackLooksAtItsArguments)
{
    ASSERT_EQ(start(), 0U);
    forget();
    ky_port_event_t event = {};
    event.log_port = port_a;
    EXPECT_EQ(__bridge_port_add_swid_callbacks(7, &event), KY_STATUS_CMD_ERROR);
    EXPECT_EQ(__bridge_port_add_swid_callbacks(9, nullptr), KY_STATUS_PARAM_NULL);
    EXPECT_EQ(take_lines(),
              (Lines{"error: Wrong event type , event type: (7)\n", "error: event parameter is NULL.\n"}));
    EXPECT_EQ(bridge_db->log_port_map.find(port_a), nullptr);
}

} // namespace
