// Start, mode, port events and stop: every call that they make, every way in which a start can fail, and
// that nothing is left of a module that has stopped or did not start.
#include "bridge/bridge.h"
#include "support/module_fixture.h"
#include "support/pools.h"

namespace {

using sdk::Service;
using Lines = std::vector<std::string>;

const std::string release_failed = "error: Failed to allocate memory for the bridge DB.\n";
const std::string started = "notice: SDK initiates in 802.1D mode\n";
const std::string start_calls =
    "utils_clr_memory_get acl_region_set acl_set acl_region_set acl_set adviser_register_event adviser_register_event";

class StartStopTest : public ModuleTest {};

TEST_F(StartStopTest, AStartBuildsBothRegionsThenRegisters)
{
    const std::string record = std::to_string(sizeof(bridge_db_t)) + " bytes, tag 8";
    EXPECT_EQ(start(4, 512), 0U);
    EXPECT_EQ(take_calls(), Lines({"utils_clr_memory_get 1 x " + record, "acl_region_set CREATE size 512: region 1",
                                   "acl_set CREATE ingress on region 1: ACL 1",
                                   "acl_region_set CREATE size 4: region 2", "acl_set CREATE egress on region 2: ACL 2",
                                   "adviser_register_event event 9", "adviser_register_event event 12"}));
    EXPECT_EQ(take_lines(), Lines{started});
    std::uint32_t mode = 77;
    EXPECT_EQ(ky_bridge_mode_get(&mode), 0U);
    EXPECT_EQ(mode, 1U);
    for (const auto &[event, callback] : device.adviser.callbacks)
        EXPECT_EQ(callback, __bridge_port_add_swid_callbacks) << event;

    EXPECT_EQ(ky_bridge_deinit(), 0U);
    EXPECT_EQ(take_calls(), Lines{"utils_memory_put " + record}); // the regions stay
    EXPECT_EQ(pools::built(), 0U);
    EXPECT_EQ(ky_bridge_mode_get(&mode), 0U);
    EXPECT_EQ(mode, 0U);
}

// What a start refuses by its parameters alone never reaches the ACL manager, and leaves no module behind.
TEST_F(StartStopTest, ModesThatTheModuleDoesNotRunInAreRefused)
{
    const struct {
        std::uint32_t mode, multiple_vlan;
        std::string line;
    } cases[] = {
        {0, 2, "notice: SDK initiates in 802.1Q mode\n"},
        {2, 0, "notice: SDK hybrid mode only supported in Veridian\n"},
        {3, 2, "error: SDK mode in not supported.\n"},
        {1, 1, "error: KY_BRIDGE_MULTIPLE_VLAN_MODE_NON_HOMOGENOUS is currently not supported.\n"},
        {2, 1, "error: KY_BRIDGE_MULTIPLE_VLAN_MODE_NON_HOMOGENOUS is currently not supported.\n"},
    };
    for (const auto &c : cases) {
        const bool starts = c.mode == 0;
        EXPECT_EQ(start_mode(c.mode, 0, 0, c.multiple_vlan), starts ? 0U : 13U); // nobody looks at the sizes
        EXPECT_EQ(take_lines(), Lines{c.line});
        EXPECT_EQ(ky_bridge_deinit(), 0U);
        ky_bridge_log_verbosity_level_set(0);
        forget();
        EXPECT_EQ(start_mode(c.mode, 0, 0, c.multiple_vlan), starts ? 0U : 13U);
        EXPECT_EQ(take_lines(), Lines{});
        ky_bridge_log_verbosity_level_set(3);
        EXPECT_EQ(take_services(), starts ? "utils_clr_memory_get" : "utils_clr_memory_get utils_memory_put");
        EXPECT_EQ(bridge_db != nullptr, starts);
        EXPECT_EQ(ky_bridge_deinit(), 0U);
        forget();
    }
    device.faults.fail(Service::utils_clr_memory_get, 1, 77);
    EXPECT_EQ(start(), 77U);
    EXPECT_EQ(take_lines(), Lines{release_failed});
    EXPECT_EQ(bridge_db, nullptr);
}

// A start without parameters leaves the module in 802.1Q mode, until it is stopped like any other.
TEST_F(StartStopTest, AStartWithoutParametersIsIn8021QMode)
{
    EXPECT_EQ(ky_bridge_init(nullptr), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(take_lines(), Lines{"error: bridge_init_param parameter is NULL.\n"});
    ASSERT_NE(bridge_db, nullptr);
    ky_bridge_sdk_mode_t mode = KY_BRIDGE_SDK_MODE_HYBRID;
    EXPECT_EQ(ky_bridge_mode_get(&mode), 0U);
    EXPECT_EQ(mode, KY_BRIDGE_SDK_MODE_802_1Q);
    EXPECT_EQ(take_services(), "utils_clr_memory_get");
}

// Each step of a start fails once: its own message and status come out, and its predecessors are undone in
// reverse, past whatever else is refused. Afterwards the same device carries a good start.
TEST_F(StartStopTest, AStartThatFailsUndoesWhatItDid)
{
    const std::string put = " utils_memory_put", undo_region = " acl_set acl_region_set",
                      undo = undo_region + undo_region + put, set_region = "error: Failed to set region with size ",
                      set_acl = "error: Failed to set ACL with region ID ",
                      no_ingress = "error: Failed to allocate ingress region.\n",
                      no_egress = "error: Failed to allocate egress region.\n",
                      kept_egress = "error: Failed to deallocate egress region.\n",
                      event = "error: Failed in adviser_register_event (port_",
                      reason = ", error: Entry Already bound \n", event_12 = event + "del_from_swid)" + reason;
    struct Case {
        unsigned failing_call, failing_pool; // counted from the start; 0: none
        unsigned failing_undo;               // a second call, counted from the start
        std::string services;                // after those of the steps that were done
        Lines lines;
    };
    const Case cases[] = {
        {2, 0, 0, put, {set_region + "(16).\n", no_ingress}},
        {3, 0, 0, " acl_region_set" + put, {set_acl + "(1).\n", no_ingress}},
        {3, 5, 0, undo_region + put, {"error: Failed to Initialize regions(1) offset pool.\n", no_ingress}},
        {4, 0, 5, " acl_set" + put, {set_region + "(8).\n", no_egress, set_acl + "(1).\n", release_failed}},
        {5, 0, 0, " acl_region_set" + undo_region + put, {set_acl + "(2).\n", no_egress}},
        {5, 6, 0, undo, {"error: Failed to Initialize regions(2) offset pool.\n", no_egress}},
        {6, 0, 0, undo, {event + "add_into_swid)" + reason}},
        {7, 0, 0, undo, {event_12}},
        {7, 0, 9, undo, {event_12, set_region + "(8).\n", kept_egress, release_failed}},
        {7, 0, 12, undo, {event_12, release_failed}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.lines.front() + c.lines.back());
        device.acl = {};
        device.adviser = {};
        if (c.failing_pool != 0)
            pools::cut_short(c.failing_pool, c.failing_pool == 5 ? 4 : 0); // some records, or none at all
        else
            device.faults.fail_any(c.failing_call, 24);
        device.faults.fail_any(c.failing_undo, 25);
        EXPECT_EQ(start(8, 16), c.failing_pool != 0 ? 1U : 24U);
        std::size_t end = 0;
        for (unsigned call = 0; call < c.failing_call; ++call)
            end = start_calls.find(' ', end + 1);
        EXPECT_EQ(take_services(), start_calls.substr(0, end) + c.services);
        Lines expected = {started};
        expected.insert(expected.end(), c.lines.begin(), c.lines.end());
        EXPECT_EQ(take_lines(), expected);
        EXPECT_EQ(bridge_db, nullptr);
        EXPECT_EQ(pools::built(), 0U);
        EXPECT_EQ(device.snapshot().empty(), c.failing_undo == 0 || c.failing_undo == 12);
        EXPECT_EQ(start(8, 16) | ky_bridge_deinit(), 0U);
        forget();
    }
    device.reset(); // the memory that was not taken back
}

// ---- Port events -----------------------------------------------------------------------------------

TEST_F(StartStopTest, AnAnnouncedPortIsKnownAndBound)
{
    ASSERT_EQ(start(), 0U);
    device.bridge_swids = {0, 255};
    forget();
    EXPECT_EQ(announce(port_a, 255), 0U);
    EXPECT_EQ(take_calls(), Lines({"swid_validation SWID 255", "cl_malloc 4097 bytes",
                                   "acl_bind_port BIND port 0x00010001 ingress to ACL 1"}));
    ASSERT_NE(port_record(port_a), nullptr);
    EXPECT_EQ(port_record(port_a)->swid, 255);
    EXPECT_EQ(deliver(KY_ADVISER_EVENT_PORT_DEL_FROM_SWID, port_b), 0U); // never announced
    EXPECT_EQ(deliver(KY_ADVISER_EVENT_PORT_DEL_FROM_SWID, port_a), 0U);
    EXPECT_EQ(take_lines(), Lines{"notice: __bridge_port_add_swid_callbacks was called with an existing port "
                                  "(0x00010001).\n"});
    expect_consistent();
}

// Most ports of a switch are none of the module's business, and for those it must stay silent.
TEST_F(StartStopTest, EventsOfOtherPortsAreIgnored)
{
    ky_port_event_t record = {};
    ky_bridge_log_verbosity_level_set(5);
    EXPECT_EQ(__bridge_port_add_swid_callbacks(9, &record), 0U);
    EXPECT_EQ(take_lines(), Lines{"debug: __bridge_port_add_swid_callbacks: bridge_db is not initiatesd.\n"});
    ASSERT_EQ(start_mode(KY_BRIDGE_SDK_MODE_802_1Q, 0, 0), 0U);
    forget();
    EXPECT_EQ(__bridge_port_add_swid_callbacks(9, &record), 0U);
    EXPECT_EQ(take_lines(), Lines{});
    ASSERT_EQ(ky_bridge_deinit(), 0U);

    ASSERT_EQ(start(), 0U);
    device.ports.ports[port_a] = {};
    forget();
    EXPECT_EQ(deliver(9, port_a, 1) | deliver(12, port_a, 1) | deliver(9, port_a, 1, 2), 0U); // not its SWID
    swid_validation_func_ptr = nullptr;
    EXPECT_EQ(deliver(9, port_a) | deliver(12, port_a), 0U);
    swid_validation_func_ptr = sdk_validate_swid;
    EXPECT_EQ(take_lines(), Lines{});

    EXPECT_EQ(deliver(9, port_a, 0, 2), 0U);
    EXPECT_EQ(take_lines(),
              Lines{"debug: __bridge_port_add_swid_callbacks: Can't update TCA CONNECTOR PORT (0x00010001).\n"});
    record.log_port = port_a;
    EXPECT_EQ(__bridge_port_add_swid_callbacks(7, &record), KY_STATUS_CMD_ERROR);
    EXPECT_EQ(take_lines(), Lines{"error: Wrong event type , event type: (7)\n"});
    EXPECT_EQ(__bridge_port_add_swid_callbacks(9, nullptr), KY_STATUS_PARAM_NULL);
    EXPECT_EQ(take_lines(), Lines{"error: event parameter is NULL.\n"});
    EXPECT_EQ(port_record(port_a), nullptr);
}

TEST_F(StartStopTest, AnAnnouncementThatFailsIsReported)
{
    sdk::set_limits(8, 1);
    ASSERT_EQ(start(), 0U);
    forget();
    device.faults.fail(Service::acl_bind_port, 1, 77);
    EXPECT_EQ(announce(port_a), 77U);
    EXPECT_EQ(take_lines(), Lines({"error: acl_bind_port to bind port [0x10001] to ACL(1) direction (0) failed.\n",
                                   "error: __bridge_bind_port_to_acl failed for port (0x00010001).\n"}));
    EXPECT_NE(port_record(port_a), nullptr);

    EXPECT_EQ(announce(port_a), KY_STATUS_ENTRY_ALREADY_EXISTS);
    EXPECT_EQ(take_lines(), Lines{"error: __bridge_db_alloc_log_port failed for port (0x00010001).\n"});
    EXPECT_EQ(announce(port_b), KY_STATUS_NO_RESOURCES);
    EXPECT_EQ(take_lines(), Lines({"error: Could not find free log port entry in bridge_db.\n",
                                   "error: __bridge_db_alloc_log_port failed for port (0x00010002).\n"}));
}

// ---- Stop ------------------------------------------------------------------------------------------

// Whatever the stop answers, nothing of one run reaches the next: the identifiers begin anew.
TEST_F(StartStopTest, AStopAnswersWhatTheReleaseOfTheDatabaseDid)
{
    for (const ky_status_t fault : {0U, 77U}) {
        ASSERT_EQ(start(3, 2), 0U);
        EXPECT_EQ(create_bridge(), 1);
        forget();
        if (fault != 0)
            device.faults.fail(Service::utils_memory_put, 1, fault);
        EXPECT_EQ(ky_bridge_deinit(), fault);
        EXPECT_EQ(take_lines(), fault == 0 ? Lines{} : Lines{release_failed});
        EXPECT_EQ(bridge_db, nullptr);
        EXPECT_EQ(pools::built(), 0U);
    }
    device.reset(); // the memory that was not taken back
}

// Every pool, table and record of a run goes with it, also when a clear was refused.
TEST_F(StartStopTest, TenStartsAndStopsLeaveNothingBehind)
{
    for (int run = 0; run < 10; ++run) {
        ASSERT_EQ(start(), 0U);
        ASSERT_EQ(announce(port_a), 0U);
        ASSERT_EQ(add(create_bridge(), port_a, 100), 0U);
        if (run == 9) // a refused clear; the device keeps what it refused to give up
            device.faults.fail(Service::bridge_port_set, 1, 77);
        EXPECT_EQ(ky_bridge_deinit(), 0U);
        EXPECT_EQ(device.memory.bytes(), 0U);
        EXPECT_EQ(pools::built(), 0U);
    }
}

} // namespace
