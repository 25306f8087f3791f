// The ACL regions with their pools of offsets, and the binding of ports to ACLs, down to the bytes sent.
#include <cstring>

#include "bridge/acl.h"
#include "support/module_fixture.h"
#include "support/pools.h"

namespace {

using sdk::Service;
using Lines = std::vector<std::string>;
using Words = std::vector<std::uint32_t>;

constexpr std::uint32_t region_id = 0x01020304, acl_id = 0x0A0B0C0D;

/// Works on a region of its own: these operations take what they need as arguments.
class RegionTest : public ModuleTest {
protected:
    RegionTest()
    {
        device.acl.next_region_id = region_id;
        device.acl.next_acl_id = acl_id;
        device.ports.ports[0x100] = {};
    }
    ky_status_t allocate() { return __allocate_region(&region, 3, KY_ACL_DIRECTION_EGRESS); }
    ky_status_t deallocate() { return __deallocate_region(&region, 3, KY_ACL_DIRECTION_EGRESS); }

    /// What every call sent, as 32-bit words. Forgets the calls.
    Words take_sent()
    {
        Words sent;
        for (const sdk::Call &call : device.journal.calls()) {
            const std::size_t before = sent.size();
            sent.resize(before + call.sent.size() / sizeof(std::uint32_t));
            std::memcpy(&sent[before], call.sent.data(), call.sent.size());
        }
        device.journal.clear();
        return sent;
    }

    bridge_acl_region_t region = {};
};

TEST_F(RegionTest, ARegionIsMadeWithItsAclBoundAndUnmadeInReverse)
{
    ASSERT_EQ(allocate(), 0U);
    EXPECT_EQ(device.journal.calls().front().arguments, std::vector<std::uint64_t>({4, 0, 0}));
    EXPECT_EQ(take_sent(), Words({12, 5, 0, 3, 0, 12, 0, 0, 1, 0, region_id, 0, 0}));
    EXPECT_EQ(Words({region.region_id, region.region_size, region.direction, region.acl_id}),
              Words({region_id, 3, 1, acl_id}));
    EXPECT_EQ(pools::built(), 1U);

    EXPECT_EQ(__bridge_bind_port_to_acl(0x100, acl_id, 1), 0U);
    EXPECT_EQ(take_sent(), Words({25, acl_id, 1, 0x100}));
    EXPECT_EQ(__bridge_unbind_port_from_acl(0x100, acl_id, 1), 0U);
    EXPECT_EQ(take_sent(), Words({17, 0, 1, 0x100, 26, acl_id, 1, 0x100}));

    region.direction = 7;
    ASSERT_EQ(deallocate(), 0U);
    EXPECT_EQ(device.journal.calls().back().arguments, std::vector<std::uint64_t>({4, 0, 0}));
    EXPECT_EQ(take_sent(), Words({13, acl_id, 0, 1, 0, region_id, 0, 0, 13, 5, 0, 3, region_id}));
    EXPECT_EQ(Words({region.region_size, region.direction}), Words({0, 1}));
    EXPECT_EQ(pools::built(), 0U);
    EXPECT_EQ(take_lines(), Lines{});
}

// Offset 0 would be refused by the ACL manager, and an offset handed out twice overwrites a rule.
TEST_F(RegionTest, OffsetsComeLowestFirstAndTheOneGivenBackLastComesNext)
{
    ASSERT_EQ(allocate(), 0U);
    bridge_acl_offset_t *held[3];
    for (std::uint16_t expected = 1; bridge_acl_offset_t * &offset : held) {
        offset = region.offset_pool.take();
        ASSERT_NE(offset, nullptr);
        EXPECT_EQ(offset->offset, expected++);
    }
    EXPECT_EQ(region.offset_pool.take(), nullptr);
    region.offset_pool.put(held[2]);
    region.offset_pool.put(held[0]);
    EXPECT_EQ(region.offset_pool.take(), held[0]);
    EXPECT_EQ(region.offset_pool.take(), held[2]);
    EXPECT_EQ(deallocate(), 0U);
}

// What the ACL manager did not release must stay usable: a descriptor without a pool would lose its rules.
TEST_F(RegionTest, ARefusedReleaseLeavesDescriptorAndPool)
{
    ASSERT_EQ(allocate(), 0U);
    for (const auto &[service, line] :
         {std::pair(Service::acl_set, "error: Failed to set ACL with region ID (16909060).\n"),
          std::pair(Service::acl_region_set, "error: Failed to set region with size (3).\n")}) {
        device.faults.fail(service, 1, 77);
        forget();
        EXPECT_EQ(deallocate(), 77U);
        EXPECT_EQ(take_lines(), Lines{line});
        EXPECT_EQ(Words({region.region_id, region.region_size, region.acl_id}), Words({region_id, 3, acl_id}));
        bridge_acl_offset_t *const offset = region.offset_pool.take();
        ASSERT_NE(offset, nullptr);
        region.offset_pool.put(offset);
    }
    region.offset_pool.destroy();
}

// A binding is only undone where it is the module's own: a user's ACL on the port must not be taken away.
TEST_F(RegionTest, BindingsThatTheAclManagerDoesNotConfirmStay)
{
    const std::string unbind_refused =
        "error: acl_unbind_port to unbind port [0x100] from ACL(7) direction (0) failed.\n";
    struct Case {
        Service failing;
        ky_status_t fault; // 0: nothing fails
        std::uint32_t expected_acl;
        ky_status_t status;
        std::string services, line;
    };
    const Case cases[] = {
        {Service::acl_unbind_port, 0, 0xAB, 13, "acl_bind_port_get",
         "error: port [0x100] is bound to a diffrent acl then expected (0x7 != 0xab)\n"},
        {Service::acl_bind_port_get, 21, 0xAB, 0, "acl_bind_port_get",
         "notice: log port 0x100, direction 0 expected to be bounded with acl id 0xab, but no ACL Found.\n"},
        {Service::acl_bind_port_get, 77, 7, 77, "acl_bind_port_get", unbind_refused},
        {Service::acl_unbind_port, 21, 7, 21, "acl_bind_port_get acl_unbind_port", unbind_refused},
    };
    device.acl.next_acl_id = 7;
    ASSERT_EQ(__allocate_region(&region, 3, 0), 0U);
    device.faults.fail(Service::acl_bind_port, 1, 77);
    EXPECT_EQ(__bridge_bind_port_to_acl(0x100, 7, 0), 77U);
    EXPECT_EQ(take_lines(), Lines{"error: acl_bind_port to bind port [0x100] to ACL(7) direction (0) failed.\n"});
    ASSERT_EQ(__bridge_bind_port_to_acl(0x100, 7, 0), 0U);
    for (const Case &c : cases) {
        forget();
        if (c.fault != 0)
            device.faults.fail(c.failing, 1, c.fault);
        EXPECT_EQ(__bridge_unbind_port_from_acl(0x100, c.expected_acl, 0), c.status);
        EXPECT_EQ(take_lines(), Lines{c.line});
        EXPECT_EQ(take_services(), c.services);
        EXPECT_EQ(device.acl.bindings.size(), 1U);
    }
    region.offset_pool.destroy();
}

} // namespace
