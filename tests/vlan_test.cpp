// Counted membership of ports in VLANs, where the numbers of users' and of internal VLANs overlap, and the
// refresh of the ports' RSTP state.
#include <fmt/format.h>

#include "bridge/vlan.h"
#include "support/module_fixture.h"

namespace {

using sdk::Service;
using Lines = std::vector<std::string>;

class VlanTest : public ModuleTest {
protected:
    /// The VLAN counters of port_a that are not 0, as "vlan:count", ascending.
    static std::string counters()
    {
        std::string text;
        for (unsigned vlan = 0; vlan < 4097; ++vlan)
            if (const unsigned count = port_record(port_a)->vlan_ref_cnt[vlan])
                text += fmt::format("{}{}:{}", text.empty() ? "" : " ", vlan, count);
        return text;
    }

    /// What was asked of the VLAN module for port_a since the last time, "" for nothing; forgets all calls.
    static std::string take_vlan_calls()
    {
        std::string text;
        for (std::string call : take_calls())
            if (call.starts_with("vlan_port_multi_vlans_set ")) {
                call.erase(call.find("port 0x00010001: "), 17);
                text += call.substr(26);
            }
        return text;
    }
};

// A port that leaves a VLAN one use too early loses the traffic of another virtual port; one that leaves too
// late goes on receiving a bridge's traffic. Bridges 1, 2 and 3 have the internal VLANs 1, 2 and 3.
TEST_F(VlanTest, APortIsInAVlanWhileOneOfItsVirtualPortsUsesIt)
{
    struct Step {
        ky_access_cmd_t cmd;
        std::uint16_t bridge, vlan;
        const char *call;     ///< to the VLAN module
        const char *counters; ///< afterwards
    };
    constexpr ky_access_cmd_t join = KY_ACCESS_CMD_ADD, leave = KY_ACCESS_CMD_DELETE;
    const Step steps[] = {
        // The own VLAN is the internal one.
        {join, 2, 2, "ADD vlan 2 tagged", "2:2"},
        {leave, 2, 2, "DELETE vlan 2 tagged", ""},
        // The internal VLAN is another virtual port's own, which leaves last, then first.
        {join, 1, 3, "ADD vlan 3 tagged, vlan 1 tagged", "1:1 3:1"},
        {join, 3, 100, "ADD vlan 100 tagged", "1:1 3:2 100:1"},
        {leave, 3, 100, "DELETE vlan 100 tagged", "1:1 3:1"},
        {join, 3, 100, "ADD vlan 100 tagged", "1:1 3:2 100:1"},
        {leave, 1, 3, "DELETE vlan 1 tagged", "3:1 100:1"},
        // The own VLAN is joined again though it is another bridge's internal one already.
        {join, 1, 3, "ADD vlan 3 tagged, vlan 1 tagged", "1:1 3:2 100:1"},
        {leave, 3, 100, "DELETE vlan 100 tagged", "1:1 3:1"},
        {leave, 1, 3, "DELETE vlan 3 tagged, vlan 1 tagged", ""},
        // Two virtual ports hold each other's internal VLAN.
        {join, 1, 2, "ADD vlan 2 tagged, vlan 1 tagged", "1:1 2:1"},
        {join, 2, 1, "ADD vlan 1 tagged", "1:2 2:2"},
        {leave, 1, 2, "", "1:1 2:1"},
        {leave, 2, 1, "DELETE vlan 1 tagged, vlan 2 tagged", ""},
    };
    ASSERT_EQ(start(), 0U);
    ASSERT_EQ(announce(port_a), 0U);
    for (int bridge = 0; bridge < 3; ++bridge)
        create_bridge();
    for (const auto &[cmd, bridge, vlan, call, expected] : steps) {
        SCOPED_TRACE(fmt::format("{} cmd {} vlan {} bridge {}", call, cmd, vlan, bridge));
        forget();
        ASSERT_EQ(ky_bridge_port_set(cmd, bridge, port_a, vlan, 0, 0), 0U);
        EXPECT_EQ(take_vlan_calls(), call);
        EXPECT_EQ(counters(), expected);
        expect_consistent();
    }
}

// The entries lie one behind the other, 8 bytes each.
TEST_F(VlanTest, EveryByteOfTheEntriesIsSent)
{
    ASSERT_EQ(start(), 0U);
    ASSERT_EQ(announce(port_a), 0U);
    const std::uint16_t id = create_bridge();
    ASSERT_EQ(add(id, port_a, 0x0ABC, 1), 0U);
    EXPECT_EQ(device.journal.calls().back().sent,
              (std::vector<std::uint8_t>{0xBC, 0x0A, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0}));
}

// After a refused restore the port has left its VLANs already: its deletion must neither leave them again
// nor wrap a counter to 255, which would keep the port in them for ever.
TEST_F(VlanTest, ACounterAtZeroStaysThere)
{
    ASSERT_EQ(start(), 0U);
    ASSERT_EQ(announce(port_a), 0U);
    const std::uint16_t id = create_bridge();
    for (const std::uint16_t vlan : {std::uint16_t{100}, std::uint16_t{1}}) {
        SCOPED_TRACE(vlan);
        ASSERT_EQ(add(id, port_a, vlan), 0U);
        device.faults.fail(Service::acl_unbind_port, 1, KY_STATUS_COMM_ERROR);
        device.faults.fail(Service::vlan_port_multi_vlans_set, 2, KY_STATUS_TIMEOUT);
        EXPECT_EQ(remove(id, port_a, vlan), KY_STATUS_COMM_ERROR);
        EXPECT_EQ(counters(), "");
        forget();
        EXPECT_EQ(remove(id, port_a, vlan), 0U);
        EXPECT_EQ(take_vlan_calls(), "");
        EXPECT_EQ(counters(), "");
    }
}

// The state is the one that the port has: a state made up here would open or close the port.
TEST_F(VlanTest, ARefreshWritesBackTheStateThatItRead)
{
    device.bridge_swids.insert(7);
    ASSERT_EQ(start(), 0U);
    ASSERT_EQ(announce(port_a, 7), 0U);
    for (const sdk::RstpState state :
         {sdk::RstpState::discarding, sdk::RstpState::learning, sdk::RstpState::forwarding}) {
        device.ports.find(port_a)->rstp_state = state;
        forget();
        EXPECT_EQ(__bridge_update_port_rstp_state(port_record(port_a)), 0U);
        EXPECT_EQ(take_calls(), (Lines{"mstp_mode_get GET SWID 7: mode 2",
                                       fmt::format("rstp_port_state_get GET port 0x00010001: {}", name(state)),
                                       fmt::format("rstp_port_state_set SET port 0x00010001: {}", name(state))}));
    }
    for (const std::uint32_t mode : {0U, 1U, 3U}) { // no spanning tree with port states
        device.mstp_modes[7] = mode;
        EXPECT_EQ(__bridge_update_port_rstp_state(port_record(port_a)), 0U);
        EXPECT_EQ(take_services(), "mstp_mode_get");
    }
}

// A walk that stops at a port without virtual ports, or does not stop at a refusal, leaves states stale unseen.
TEST_F(VlanTest, TheWalkRefreshesEveryPortWithVirtualPortsUpToTheFirstRefusal)
{
    ASSERT_EQ(start(), 0U);
    EXPECT_EQ(__bridge_update_rstp_state(), 0U); // no port at all
    ASSERT_EQ(announce(port_c) | announce(port_b) | announce(port_a), 0U);
    const std::uint16_t id = create_bridge();
    ASSERT_EQ(add(id, port_c, 100) | add(id, port_a, 100), 0U);
    forget();
    const std::string refresh = "mstp_mode_get rstp_port_state_get rstp_port_state_set";
    EXPECT_EQ(__bridge_update_rstp_state(), 0U);
    EXPECT_EQ(take_services(), refresh + " " + refresh);
    const auto expect_end = [&](Service service, unsigned nth, const std::string &services) {
        device.faults.fail(service, nth, KY_STATUS_COMM_ERROR);
        EXPECT_EQ(__bridge_update_rstp_state(), KY_STATUS_COMM_ERROR);
        EXPECT_EQ(take_services(), services);
        EXPECT_EQ(take_log(), (Lines{fmt::format("{} failed (Communication Error).\n", sdk::name(service)),
                                     "__bridge_update_port_rstp_state failed (Communication Error).\n"}));
    };
    expect_end(Service::mstp_mode_get, 2, refresh + " mstp_mode_get");
    expect_end(Service::rstp_port_state_get, 1, "mstp_mode_get rstp_port_state_get");
    expect_end(Service::rstp_port_state_set, 1, refresh);
}

} // namespace
