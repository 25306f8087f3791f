// A bridge's VLAN group for ACLs of the user: made by the first bind, gone with the last unbind, and what a
// refusal by the ACL manager leaves behind. And which of the module's own ACLs a port is bound to.
#include <cstring>

#include "support/module_fixture.h"

namespace {

using sdk::Service;
using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

constexpr std::uint32_t ingress = KY_ACL_DIRECTION_INGRESS;
constexpr std::uint32_t egress = KY_ACL_DIRECTION_EGRESS;
constexpr std::uint16_t no_group = KY_VLAN_GROUP_NONE;
constexpr std::uint16_t untouched = 0xA5A5;
constexpr ky_status_t not_found = KY_STATUS_ENTRY_NOT_FOUND;

struct Answer {
    ky_status_t status;
    std::uint16_t vlan_group = untouched; ///< what was written

    bool operator==(const Answer &) const = default;
};

class VlanGroupTest : public ModuleTest {
protected:
    void SetUp() override
    {
        ASSERT_EQ(start(0x102), 0U);
        ASSERT_EQ(create_bridge(), 1);
    }
    /// A request about bridge 1; whatever comes of it, its memory must be back afterwards.
    Answer request(ky_access_cmd_t cmd, std::uint32_t direction)
    {
        const std::size_t before = device.memory.raw_outstanding.size();
        Answer answer = {0};
        answer.status = ky_bridge_int_vlan_group_set(cmd, 1, direction, &answer.vlan_group);
        EXPECT_EQ(device.memory.raw_outstanding.size(), before);
        return answer;
    }
    Answer bind(std::uint32_t direction) { return request(KY_ACCESS_CMD_BIND, direction); }
    Answer unbind(std::uint32_t direction) { return request(KY_ACCESS_CMD_UNBIND, direction); }

    static void expect_bound(bool in, bool out, std::uint16_t vlan_group)
    {
        EXPECT_EQ(bridge_record(1)->acl_bound[ingress], in ? 1U : 0U);
        EXPECT_EQ(bridge_record(1)->acl_bound[egress], out ? 1U : 0U);
        EXPECT_EQ(bridge_record(1)->vlan_group, vlan_group);
        Answer answer = {0};
        answer.status = ky_bridge_int_vlan_group_get(1, &answer.vlan_group);
        EXPECT_EQ(answer, (vlan_group == no_group ? Answer{not_found} : Answer{0, vlan_group}));
    }
};

// The other side reads the record byte by byte, and its memory comes with whatever was in it before.
TEST_F(VlanGroupTest, EveryByteOfTheRecordsIsSent)
{
    while (create_bridge() != 0x102) { // until a VLAN has two bytes that differ
    }
    device.acl.next_vlan_group = 0x1234;
    device.on_call = [this](const sdk::Call &call) {
        if (call.service == Service::cl_malloc)
            for (const auto &[block, size] : device.memory.raw_outstanding)
                std::memset(block, 0xA5, size);
    };
    forget();
    std::uint16_t group = untouched;
    EXPECT_EQ(ky_bridge_int_vlan_group_set(KY_ACCESS_CMD_BIND, 0x102, egress, &group), 0U);
    EXPECT_EQ(group, 0x1234);
    EXPECT_EQ(ky_bridge_int_vlan_group_set(KY_ACCESS_CMD_UNBIND, 0x102, egress, nullptr), 0U);

    std::vector<Bytes> sent;
    for (const sdk::Call &call : device.journal.calls())
        if (call.service == Service::acl_vlan_group_set)
            sent.push_back(call.sent);
    const std::vector<Bytes> expected = {
        {12, 0, 0, 0, 0, 0, 0x00, 0x00, 0, 0, 0, 0, 0x00, 0x00}, // CREATE
        {1, 0, 0, 0, 0, 0, 0x34, 0x12, 1, 0, 0, 0, 0x02, 0x01},  // ADD
        {3, 0, 0, 0, 0, 0, 0x34, 0x12, 1, 0, 0, 0, 0x02, 0x01},  // DELETE
        {13, 0, 0, 0, 0, 0, 0x34, 0x12, 1, 0, 0, 0, 0x02, 0x01}, // DESTROY
    };
    EXPECT_EQ(sent, expected);
}

// Both directions share one group: made twice it leaks, gone too early the other direction's ACLs fall off.
TEST_F(VlanGroupTest, TheGroupLivesWhileADirectionIsBound)
{
    for (const std::uint32_t first : {ingress, egress}) {
        const std::uint32_t second = 1 - first;
        device.acl.next_vlan_group = 40;
        forget();
        EXPECT_EQ(bind(first), (Answer{0, 40}));
        EXPECT_EQ(take_calls(), (Lines{"cl_malloc 14 bytes", "acl_vlan_group_set CREATE: group 40",
                                       "acl_vlan_group_set ADD group 40 vlan 1", "cl_free 14 bytes"}));
        expect_bound(first == ingress, first == egress, 40);
        forget();
        EXPECT_EQ(unbind(second), Answer{not_found});
        EXPECT_EQ(bind(first), Answer{KY_STATUS_RESOURCE_IN_USE});
        EXPECT_EQ(take_lines(),
                  (Lines{"error: Bridge (1) is not bound with acl on direction " + std::to_string(second) + "\n",
                         "error: Bridge (1) is already bound with acl on direction " + std::to_string(first) + "\n"}));
        EXPECT_EQ(bind(second), (Answer{0, 40}));
        EXPECT_EQ(unbind(first), Answer{0});
        EXPECT_EQ(take_services(), "cl_malloc cl_free cl_malloc cl_free cl_malloc cl_free cl_malloc cl_free");
        expect_bound(second == ingress, second == egress, 40);
        EXPECT_EQ(unbind(second), Answer{0});
        EXPECT_EQ(take_calls(), (Lines{"cl_malloc 14 bytes", "acl_vlan_group_set DELETE group 40 vlan 1",
                                       "acl_vlan_group_set DESTROY group 40", "cl_free 14 bytes"}));
        expect_bound(false, false, no_group);
    }
}

// A refused bind that kept its flag would refuse every later one; one that kept its group would leak it.
TEST_F(VlanGroupTest, ARefusedBindLeavesTheBridgeUnbound)
{
    const std::string refused = "error: acl_vlan_group_set cmd==";
    const struct {
        unsigned refused_call, also; ///< 0: no other
        ky_status_t status;
        Lines lines;
    } cases[] = {
        {1, 0, KY_STATUS_NO_RESOURCES, {}}, // of memory
        {2, 0, 4, {refused + "CREATE failed (Communication Error).\n"}},
        {3, 0, 50, {refused + "ADD failed ().\n"}},
        {3, 4, 999, {refused + "ADD failed (Unknown return code).\n"}},
    };
    for (const auto &c : cases) {
        forget();
        device.faults.fail_any(c.refused_call, c.status);
        device.faults.fail_any(c.also, 1);
        EXPECT_EQ(bind(egress), Answer{c.status});
        EXPECT_EQ(take_lines(), c.lines);
        expect_bound(false, false, no_group);
        EXPECT_EQ(device.acl.vlan_groups.size(), c.also != 0 ? 1U : 0U); // left where the undo was refused too
    }
}

// The user has let go of the direction; a group that the ACL manager would not give up must stay known and usable.
TEST_F(VlanGroupTest, ARefusedUnbindGivesUpTheDirectionAndKeepsTheGroup)
{
    ASSERT_EQ(bind(ingress), (Answer{0, 1}));
    forget();
    device.faults.fail(Service::acl_vlan_group_set, 1, 29);
    EXPECT_EQ(unbind(ingress), Answer{29});
    EXPECT_EQ(take_lines(), Lines{"error: acl_vlan_group_set cmd==DELETE failed (Resource is in use).\n"});
    expect_bound(false, false, 1);
    EXPECT_EQ(destroy_bridge(1), KY_STATUS_RESOURCE_IN_USE); // the next bridge would have its VLAN in the group
    forget();
    EXPECT_EQ(bind(egress), (Answer{0, 1})); // the other direction takes the group over
    EXPECT_EQ(take_services(), "cl_malloc cl_free");

    device.faults.fail(Service::acl_vlan_group_set, 2, 29);
    EXPECT_EQ(unbind(egress), Answer{29});
    EXPECT_EQ(take_lines(), Lines{"error: acl_vlan_group_set cmd==DESTROY failed (Resource is in use).\n"});
    expect_bound(false, false, 1);

    bridge_record(1)->acl_bound[egress] = 1; // a direction that is bound to nothing
    bridge_record(1)->vlan_group = no_group;
    forget();
    EXPECT_EQ(unbind(egress), Answer{not_found});
    EXPECT_EQ(take_lines(), Lines{"error: Bridge (1) is not bound.\n"});
}

// Whoever binds ACLs of its own to a port must be told of the module's as they are now.
TEST_F(VlanGroupTest, TheModulesAclsOfAPortFollowItsVirtualPorts)
{
    ASSERT_EQ(announce(port_a), 0U);
    const auto expect_acls = [](std::uint32_t ingress_acl, std::uint32_t egress_acl) {
        std::uint32_t in = untouched, out = untouched;
        EXPECT_EQ(ky_bridge_port_acl_binding_get(port_a, &in, nullptr), 0U);
        EXPECT_EQ(ky_bridge_port_acl_binding_get(port_a, nullptr, &out), 0U);
        EXPECT_EQ(std::pair(in, out), std::pair(ingress_acl, egress_acl));
        EXPECT_EQ(ky_bridge_port_acl_binding_get(port_a, &out, &in), 0U);
        EXPECT_EQ(std::pair(out, in), std::pair(ingress_acl, egress_acl));
    };
    expect_acls(1, 0xFFFFF);
    ASSERT_EQ(add(1, port_a, 100), 0U);
    expect_acls(1, 2);

    // A mode in which ports have egress regions of their own does not start yet.
    bridge_acl_region_t own = bridge_db->egress_region;
    own.acl_id = 77;
    port_record(port_a)->eacl_region = &own;
    bridge_db->multiple_vlan_bridge_mode = KY_BRIDGE_MULTIPLE_VLAN_MODE_NON_HOMOGENOUS;
    expect_acls(1, 77);
    bridge_db->multiple_vlan_bridge_mode = KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS;
    port_record(port_a)->eacl_region = &bridge_db->egress_region;

    ASSERT_EQ(remove(1, port_a, 100), 0U);
    expect_acls(1, 0xFFFFF);
}

} // namespace
