// The port module, VLAN memberships, and the spanning tree.
#include <array>

#include "conform/calls.h"
#include "conform/check.h"

namespace conform {

namespace {

constexpr ky_access_cmd_t join = KY_ACCESS_CMD_ADD;
constexpr ky_access_cmd_t leave = KY_ACCESS_CMD_DELETE;
constexpr ky_vlan_entry_t own_vlan = {100, 0, KY_EGRESS_MODE_TAGGED};
constexpr ky_vlan_entry_t own_vlan_untagged = {100, 0, KY_EGRESS_MODE_UNTAGGED};
constexpr ky_vlan_entry_t internal_vlan = {1, 0, KY_EGRESS_MODE_TAGGED};
constexpr ky_vlan_entry_t internal_vlan_untagged = {1, 0, KY_EGRESS_MODE_UNTAGGED};

// ---- Port module ----------------------------------------------------------------------------------------

std::string no_router_port(const Settings &settings)
{
    for (const std::uint32_t port : settings.ports)
        expect(!is_router_port(port), "0, a router port", "anything but 0: the port is to carry virtual ports");
    return "";
}

std::string swid_of_ports(const Settings &settings)
{
    for (const std::uint32_t port : settings.ports) {
        const Answered swid = read_swid(port);
        expect(swid.status == KY_STATUS_SUCCESS && swid.id == settings.swid,
               fmt::format("{}, SWID {}", swid.status, swid.id), fmt::format("0, SWID {}", settings.swid));
    }
    return "";
}

std::string no_lag_member(const Settings &settings)
{
    for (const std::uint32_t port : settings.ports) {
        const Answered member = read_lag_member(port);
        expect(member.status == KY_STATUS_SUCCESS && member.id == 0, fmt::format("{}, {}", member.status, member.id),
               "0, and 0 for no LAG member: the port is to carry virtual ports");
    }
    return "";
}

constexpr std::array port_rows = {
    Check{"port.router", "the ports are no router ports, which is any answer but 0",
          "ky_bridge_port_set answers 13 for every virtual port", "", no_router_port},
    Check{"port.swid", "a port's switch partition is read, in 8 bits and nothing beside them",
          "ky_bridge_port_set answers that status, or looks at the wrong partition; its stack is overwritten", "",
          swid_of_ports},
    Check{"port.lag-member", "the ports are no LAG members, answered in 8 bits and nothing beside them",
          "ky_bridge_port_set answers 13 or that status; its stack is overwritten", "", no_lag_member},
    Check{"stp.mode", "the partition's spanning-tree mode is read, in 32 bits",
          "creating a bridge and attaching a virtual port answer that status", "",
          [](const Settings &settings) -> std::string {
              const Answered mode = read_mstp_mode(settings.swid);
              expect_status(mode.status);
              return mode.id == KY_MSTP_MODE_RSTP ? "RSTP" : fmt::format("mode {}, not RSTP", mode.id);
          }},
    Check{"stp.state", "a port's RSTP state is read, in 32 bits",
          "creating a bridge and attaching a virtual port answer that status", "stp.mode",
          [](const Settings &settings) -> std::string {
              for (const std::uint32_t port : settings.ports)
                  expect_status(read_rstp_state(port).status);
              return "";
          }},
    Check{"stp.write-back", "a port's RSTP state is written back as it was read, and stays the same",
          "creating a bridge and attaching a virtual port answer that status, or change the state of ports",
          "stp.state",
          [](const Settings &settings) -> std::string {
              for (const std::uint32_t port : settings.ports) {
                  const std::uint32_t state = read_rstp_state(port).id;
                  expect_status(write_rstp_state(port, state));
                  const Answered after = read_rstp_state(port);
                  expect(after.status == KY_STATUS_SUCCESS && after.id == state,
                         fmt::format("{}, state {}", after.status, after.id), fmt::format("0, state {}", state));
              }
              return "";
          }},
};

// ---- VLAN memberships -----------------------------------------------------------------------------------

std::string join_one(const Settings &settings)
{
    for (const std::uint32_t port : settings.ports)
        expect_status(set_vlans(join, port, {own_vlan}));
    for (const std::uint32_t port : settings.ports)
        set_vlans(leave, port, {own_vlan});
    return "";
}

std::string join_two(const Settings &settings)
{
    for (const std::uint32_t port : settings.ports)
        expect_status(set_vlans(join, port, {own_vlan_untagged, internal_vlan_untagged}));
    for (const std::uint32_t port : settings.ports)
        set_vlans(leave, port, {own_vlan_untagged, internal_vlan_untagged});
    return "";
}

std::string leave_one(const Settings &settings)
{
    const std::uint32_t port = settings.ports[0];
    for (int again = 0; again < 2; ++again) {
        expect_status(set_vlans(join, port, {own_vlan, internal_vlan}));
        expect_status(set_vlans(leave, port, {internal_vlan}));
        expect_status(set_vlans(leave, port, {own_vlan}));
    }
    return "";
}

std::string leave_two(const Settings &settings)
{
    const std::uint32_t port = settings.ports[0];
    for (int again = 0; again < 2; ++again) {
        expect_status(set_vlans(join, port, {own_vlan, internal_vlan}));
        expect_status(set_vlans(leave, port, {own_vlan, internal_vlan}));
    }
    return "";
}

std::string join_again(const Settings &settings)
{
    const std::uint32_t port = settings.ports[0];
    expect_status(set_vlans(join, port, {own_vlan, internal_vlan}));
    expect_status(set_vlans(join, port, {own_vlan}));
    expect_status(set_vlans(join, port, {own_vlan, internal_vlan}));
    expect_status(set_vlans(leave, port, {own_vlan, internal_vlan})); // one leave undoes all of them
    return "";
}

std::string join_retagged(const Settings &settings)
{
    const std::uint32_t port = settings.ports[0];
    expect_status(set_vlans(join, port, {own_vlan}));
    expect_status(set_vlans(join, port, {own_vlan_untagged}));
    expect_status(set_vlans(leave, port, {own_vlan})); // with the tagging of whoever leaves last
    return "";
}

constexpr std::array vlan_rows = {
    Check{"vlan.join-one", "each port joins one VLAN", "ky_bridge_port_set answers that status", "", join_one},
    Check{"vlan.join-two", "each port joins two VLANs in one call, untagged", "ky_bridge_port_set answers that status",
          "vlan.join-one", join_two},
    Check{"vlan.leave-one", "a port leaves one VLAN after the other", "a virtual port cannot be deleted",
          "vlan.join-two", leave_one},
    Check{"vlan.leave-two", "a port leaves two VLANs in one call", "a virtual port cannot be deleted", "vlan.join-two",
          leave_two},
    Check{"vlan.join-again", "a port that is a member may join again, and then leaves once",
          "a virtual port on a VLAN that the port is in already cannot be attached, or keeps it there",
          "vlan.leave-two", join_again},
    Check{"vlan.join-retagged", "a port that is a member may join again with the other tagging",
          "a virtual port on a VLAN that the port is in already cannot be attached", "vlan.leave-one", join_retagged},
};

} // namespace

std::span<const Check> port_checks()
{
    return port_rows;
}

std::span<const Check> vlan_checks()
{
    return vlan_rows;
}

} // namespace conform
