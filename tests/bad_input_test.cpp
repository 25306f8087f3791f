// Calls that ask for what cannot be had: before the start, in 802.1Q mode, with NULL, with numbers out of range.
// Each answers its status and says why; nothing is written and the hardware is left alone.
#include <cstring>

#include "support/module_fixture.h"

namespace {

constexpr ky_status_t ok = KY_STATUS_SUCCESS;
constexpr ky_status_t not_found = KY_STATUS_ENTRY_NOT_FOUND;
constexpr ky_status_t is_null = KY_STATUS_PARAM_NULL;
constexpr ky_status_t bad = KY_STATUS_PARAM_ERROR;

constexpr const char *no_bridge = "error: __bridge_db_get_bridge failed (Entry Not Found).\n";
constexpr const char *no_bridge_to_set = "error: Could not find bridge_id(2) in bridge_db.\n"
                                         "error: __bridge_validate_get_port_set failed (Entry Not Found).\n";

/// Everything that a call could write to, filled so that a byte that was written shows.
struct Out {
    std::uint16_t id, vlan, vlans[4];
    std::uint32_t count, acl, other_acl, mode;
    ky_bridge_port_t list[4];

    Out() { std::memset(static_cast<void *>(this), 0xA5, sizeof *this); }
    bool operator==(const Out &other) const { return std::memcmp(this, &other, sizeof *this) == 0; }
};

struct Request {
    std::string text; ///< of the call
    ky_status_t (*call)(Out &o);
    ky_status_t status;
    std::string log;
    const char *services = "";
};

#define CALL(expression) #expression, []([[maybe_unused]] Out & o) -> ky_status_t { return expression; }

class BadInputTest : public ModuleTest {
protected:
    void SetUp() override { ky_bridge_log_verbosity_level_set(5); }

    void expect_refused(const Request &request)
    {
        SCOPED_TRACE(request.text);
        const std::string hardware = device.snapshot();
        Out out;
        forget();
        EXPECT_EQ(request.call(out), request.status);
        EXPECT_EQ(out, Out());
        std::string text;
        for (const std::string &line : take_lines())
            text += line;
        EXPECT_EQ(text, request.log);
        EXPECT_EQ(take_services(), request.services);

        ky_bridge_log_verbosity_level_set(0); // the same again, without a word
        EXPECT_EQ(request.call(out), request.status);
        EXPECT_EQ(take_lines(), std::vector<std::string>{});
        ky_bridge_log_verbosity_level_set(6); // and within the trace of its function
        EXPECT_EQ(request.call(out), request.status);
        const std::string function = request.text.substr(0, request.text.find('('));
        const std::vector<std::string> lines = take_lines();
        if (function != "ky_bridge_mode_get") { // which has none
            EXPECT_EQ(lines.front(), "trace: " + function + ": " + function + ": [\n");
            EXPECT_EQ(lines.back(), "trace: " + function + ": " + function + ": ]\n");
        }
        ky_bridge_log_verbosity_level_set(5);
        EXPECT_EQ(out, Out());
        EXPECT_EQ(device.snapshot(), hardware);
    }
};

/// Requests that only want a database with bridges; with what they are answered where there are none.
const Request requests[] = {
    {CALL(ky_bridge_set(KY_ACCESS_CMD_CREATE, &o.id, 0)), KY_STATUS_NO_RESOURCES,
     "error: Could not find free bridge entry in bridge_db.\n"},
    {CALL(ky_bridge_set(KY_ACCESS_CMD_DESTROY, &o.id, 0)), not_found, no_bridge},
    {CALL(ky_bridge_ref_cnt_increase(2)), not_found, no_bridge},
    {CALL(ky_bridge_ref_cnt_decrease(2)), not_found, no_bridge},
    {CALL(ky_bridge_port_set(KY_ACCESS_CMD_ADD, 2, 0x10001, 100, 0, 0)), not_found, no_bridge_to_set},
    {CALL(ky_bridge_port_set(KY_ACCESS_CMD_DELETE_PORT, 2, 0x10001, 100, 0, 0)), ok, ""},
    {CALL(ky_bridge_clear_port(0x10001, 0)), ok, ""},
    {CALL(ky_bridge_clear_undo(0x10001, 0)), ok, ""},
    {CALL(ky_bridge_port_get(2, o.list, &o.count, 0)), not_found,
     "error: __bridge_db_get_bridge failed (Entry Not Found), bridge_id (2).\n"},
    {CALL(ky_bridge_int_vlan_id_get(2, &o.vlan, 0)), not_found, no_bridge},
    {CALL(ky_bridge_int_vlan_bridge_id_get(1, &o.id)), not_found, no_bridge},
    {CALL(ky_bridge_log_port_member_state(0, 0x10001)), not_found, ""},
    {CALL(ky_bridge_int_vlan_group_set(KY_ACCESS_CMD_BIND, 2, 0, &o.id)), not_found, no_bridge, "cl_malloc cl_free"},
    {CALL(ky_bridge_int_vlan_group_get(2, &o.id)), not_found, no_bridge},
    {CALL(ky_bridge_port_acl_binding_get(0x10001, &o.acl, &o.other_acl)), KY_STATUS_UNSUPPORTED, ""},
    {CALL(ky_bridge_set_learning_mode(2, 1, 0)), not_found, "error: Could not find bridge_id(2) in bridge_db.\n"},
    {CALL(ky_bridge_get_learning_mode(2, &o.mode, 0)), not_found, "error: Could not find bridge_id(2) in bridge_db.\n"},
};

// A host whose modules start in another order must get through, with nothing in its variables.
TEST_F(BadInputTest, BeforeTheStartAndAfterTheStopCallsDoNothing)
{
    const auto missing = [](const std::string &function, const std::string &word = "initiatesd") {
        return "debug: " + function + ": bridge_db is not " + word + ".\n";
    };
    for (int starts = 0; starts < 2; ++starts) {
        for (Request request : requests) {
            const std::string function = request.text.substr(0, request.text.find('('));
            request.log = missing(function, function == "ky_bridge_int_vlan_id_get" ? "initialized" : "initiatesd");
            request.status = ok;
            request.services = "";
            expect_refused(request);
        }
        expect_refused(
            {CALL(ky_bridge_int_vlan_list_get(0, o.vlans, &o.count)), ok, missing("ky_bridge_int_vlan_list_get")});
        expect_refused({CALL(ky_bridge_set(KY_ACCESS_CMD_CREATE, nullptr, 0)), ok, missing("ky_bridge_set")});
        // These look at their pointers first.
        expect_refused({CALL(ky_bridge_int_vlan_list_get(0, o.vlans, nullptr)), is_null, "error: vid_num is NULL\n"});
        expect_refused({CALL(ky_bridge_get_learning_mode(1, nullptr, 0)), is_null, "error: learn param is NULL\n"});
        ASSERT_EQ(start() | ky_bridge_deinit(), ok);
    }
}

// The containers are not built in this mode: a lookup that is let through to them walks into nothing.
TEST_F(BadInputTest, In8021qModeNothingIsFound)
{
    ASSERT_EQ(start_mode(KY_BRIDGE_SDK_MODE_802_1Q, 8, 16), ok);
    for (const Request &request : requests)
        expect_refused(request);
    std::uint16_t vlan = 7;
    for (const std::uint32_t log_port : {0U, port_a}) {
        std::uint32_t count = 1;
        EXPECT_EQ(ky_bridge_int_vlan_list_get(log_port, &vlan, &count), log_port == 0 ? ok : not_found);
        EXPECT_EQ(count, 0U);
    }
    EXPECT_EQ(vlan, 7);
}

// Of several wrong arguments the one that is checked first answers. Bridge 1 is there, bridge 2 only for those who
// ask for internal ones, port_c is unknown.
TEST_F(BadInputTest, WrongArgumentsAreNamed)
{
    ASSERT_EQ(start(), ok);
    ASSERT_EQ(create_bridge(), 1);
    ASSERT_EQ(create_bridge(1), 2);
    const Request wrong[] = {
        {CALL(ky_bridge_mode_get(nullptr)), is_null, ""},
        {CALL(ky_bridge_port_get(1, o.list, nullptr, 0)), bad, "error: bridge_port_cnt_p parameter is NULL.\n"},
        {CALL(ky_bridge_int_vlan_id_get(2, nullptr, 0)), bad,
         "debug: ky_bridge_int_vlan_id_get: Vid parameter is NULL.\n"},
        {CALL(ky_bridge_int_vlan_list_get(port_c, nullptr, &o.count)), is_null, "error: vid is NULL\n"},
        {CALL(ky_bridge_int_vlan_bridge_id_get(9, nullptr)), bad, "error: bridge_id parameter is NULL.\n"},
        {CALL(ky_bridge_log_port_member_state(0, 0xFFFFFFFF)), not_found,
         "debug: ky_bridge_log_port_member_state: Could not find log_port(-1) in bridge_db.\n"},
        {CALL(ky_bridge_int_vlan_group_set(KY_ACCESS_CMD_BIND, 2, 2, nullptr)), is_null, ""},
        {CALL(ky_bridge_int_vlan_group_set(99, 2, 2, nullptr)), KY_STATUS_PARAM_EXCEEDS_RANGE, ""},
        {CALL(ky_bridge_int_vlan_group_set(KY_ACCESS_CMD_DELETE, 1, 1, &o.id)), KY_STATUS_CMD_ERROR,
         "error: Wrong cmd in bridge_int_vlan_group_set: (3)\n", "cl_malloc cl_free"},
        {CALL(ky_bridge_int_vlan_group_get(2, nullptr)), bad, "error: vlan_group parameter is NULL.\n"},
        {CALL(ky_bridge_int_vlan_group_get(2, &o.id)), not_found, no_bridge},
        {CALL(ky_bridge_int_vlan_group_get(1, &o.id)), not_found, "error: Bridge (1) is not bound.\n"},
        {CALL(ky_bridge_port_acl_binding_get(port_c, &o.acl, &o.other_acl)), not_found,
         "debug: ky_bridge_port_acl_binding_get: __bridge_db_get_log_port failed when retreiving bound ACL's. "
         "port(0x00010003).\n"},
    };
    for (const Request &request : wrong)
        expect_refused(request);
}

} // namespace
