// Queries: what they list, in which order, how much of it, and that they touch nothing but their answers.
#include <cstring>

#include "support/module_fixture.h"

namespace {

using Lines = std::vector<std::string>;
using Vlans = std::vector<std::uint16_t>;

constexpr std::uint16_t untouched = 0xA5A5;
constexpr ky_status_t not_found = KY_STATUS_ENTRY_NOT_FOUND;

struct VlanList {
    ky_status_t status;
    std::uint32_t count; ///< as the call left it
    Vlans vlans;         ///< what it wrote

    bool operator==(const VlanList &) const = default;
};

/// Asks with room for eight IDs, whatever capacity is claimed.
VlanList list_int_vlans(std::uint32_t log_port, std::uint32_t capacity)
{
    VlanList list = {0, capacity, Vlans(8, untouched)};
    list.status = ky_bridge_int_vlan_list_get(log_port, list.vlans.data(), &list.count);
    std::erase(list.vlans, untouched);
    return list;
}

class QueryTest : public ModuleTest {
protected:
    /// Bridges 1 and 3, and the internal bridge 2. port_a is in all of them, port_b in none, port_c unknown.
    void SetUp() override
    {
        ASSERT_EQ(start(), 0U);
        ASSERT_EQ(announce(port_a) | announce(port_b), 0U);
        EXPECT_EQ(list_int_vlans(0, 4), (VlanList{0, 0, {}}));
        for (const std::uint32_t is_internal : {0U, 1U, 0U})
            create_bridge(is_internal);
        ASSERT_EQ(add(1, port_a, 30) | add(2, port_a, 10, 0, 1) | add(3, port_a, 20), 0U);
        forget();
    }
};

// The list lies in memory of the caller: an entry too many, or a byte beside its fields, is somebody else's.
TEST_F(QueryTest, VirtualPortsAreListedByPortUpToTheCapacityAndNothingElseIsWritten)
{
    ASSERT_EQ(create_bridge(), 4);
    ASSERT_EQ(announce(0x0102FFFF) | announce(0x00010000), 0U);
    for (const std::uint32_t port : {0x0102FFFFU, 0x00010000U, port_a})
        ASSERT_EQ(add(4, port, 0x0ABC, port == port_a ? KY_EGRESS_MODE_UNTAGGED : KY_EGRESS_MODE_TAGGED), 0U);
    forget();
    constexpr std::uint8_t entries[] = {
        0x00, 0x00, 0x01, 0x00, 0xBC, 0x0A, 0xA5, 0xA5, 0, 0, 0, 0, // port, VLAN, not written, tagged
        0x01, 0x00, 0x01, 0x00, 0xBC, 0x0A, 0xA5, 0xA5, 1, 0, 0, 0, // untagged
        0xFF, 0xFF, 0x02, 0x01, 0xBC, 0x0A, 0xA5, 0xA5, 0, 0, 0, 0,
    };
    const struct {
        bool has_list;
        std::uint32_t capacity, count, written;
    } cases[] = {
        {true, 0, 3, 0}, {false, 2, 3, 0}, {true, 1, 1, 1}, {true, 3, 3, 3}, {true, 99, 3, 3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.capacity);
        ky_bridge_port_t list[4], wanted[4];
        std::memset(list, 0xA5, sizeof list);
        std::memset(wanted, 0xA5, sizeof wanted);
        std::memcpy(wanted, entries, c.written * sizeof wanted[0]);
        std::uint32_t count = c.capacity;
        EXPECT_EQ(ky_bridge_port_get(4, c.has_list ? list : nullptr, &count, 0), 0U);
        EXPECT_EQ(count, c.count);
        EXPECT_EQ(std::memcmp(list, wanted, sizeof wanted), 0);
    }
    EXPECT_EQ(take_services(), "");
}

// Other modules program what these lists say: in their order, and of every bridge, whoever made it.
TEST_F(QueryTest, InternalVlansAreListedUpToTheCapacity)
{
    ky_bridge_log_verbosity_level_set(5);
    const struct {
        std::uint32_t log_port, capacity;
        VlanList answer;
    } cases[] = {
        {0, 0, {0, 0, {}}}, // not a way to count
        {0, 2, {0, 2, {1, 2}}},
        {0, 0xFFFFFFFF, {0, 3, {1, 2, 3}}},
        {port_a, 0, {0, 0, {}}},
        {port_a, 2, {0, 2, {2, 3}}}, // by the port's VLANs 10, 20, 30
        {port_a, 8, {0, 3, {2, 3, 1}}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(list_int_vlans(c.log_port, c.capacity), c.answer) << c.log_port << " capacity " << c.capacity;
    EXPECT_EQ(list_int_vlans(port_b, 8), (VlanList{0, 0, {}}));
    EXPECT_EQ(list_int_vlans(port_c, 8), (VlanList{not_found, 0, {}}));
    const std::string function = "debug: __bridge_db_get_port_int_vlan_list: ";
    EXPECT_EQ(take_lines(),
              (Lines{function + "No bridge attached to port (0x00010002).\n",
                     function + "__bridge_db_get_log_port failed to retrive info about port(0x00010003).\n",
                     "error: __bridge_db_get_int_vlan_list failed (Entry Not Found).\n"}));
    EXPECT_EQ(take_services(), "");
}

// A list is whole or says that it is not: from a database that contradicts itself comes no number of entries.
TEST_F(QueryTest, ADamagedDatabaseGivesNoList)
{
    ky_bridge_log_verbosity_level_set(5);
    bridge_db_virtual_port_t *const second = port_record(port_a)->back_ref_map.find(20);
    second->bridge_id = 7;
    EXPECT_EQ(list_int_vlans(port_a, 1), (VlanList{0, 1, {2}})); // does not get that far
    EXPECT_EQ(list_int_vlans(port_a, 3), (VlanList{not_found, 0, {2}}));
    EXPECT_EQ(take_lines(), (Lines{"error: Could not find bridge_id(7) in bridge_db.\n",
                                   "error: __bridge_db_get_int_vlan_list failed (Entry Not Found).\n"}));
    second->bridge_id = 3;

    ++bridge_db->int_vlan_map.map.count;
    EXPECT_EQ(list_int_vlans(0, 4), (VlanList{KY_STATUS_ERROR, 0, {1, 2, 3}}));
    EXPECT_EQ(take_lines(), (Lines{"debug: __bridge_db_get_int_vlan_list: Unable to get the list of int_vlans.\n",
                                   "error: __bridge_db_get_int_vlan_list failed (Internal Error).\n"}));
    --bridge_db->int_vlan_map.map.count;
}

// Internal bridges hide from users, but not from modules that start from a VLAN or a port.
TEST_F(QueryTest, InternalBridgesAreFoundByThoseWhoMay)
{
    for (const std::uint32_t is_internal : {0U, 1U, 0x80000000U}) {
        std::uint16_t vlan = untouched;
        std::uint32_t count = 0;
        EXPECT_EQ(ky_bridge_int_vlan_id_get(2, &vlan, is_internal), is_internal != 0 ? 0U : not_found);
        EXPECT_EQ(vlan, is_internal != 0 ? 2 : untouched);
        EXPECT_EQ(ky_bridge_port_get(2, nullptr, &count, is_internal), is_internal != 0 ? 0U : not_found);
        EXPECT_EQ(count, is_internal != 0 ? 1U : 0U);
    }
    std::uint16_t owner = untouched;
    EXPECT_EQ(ky_bridge_int_vlan_bridge_id_get(2, &owner), 0U);
    EXPECT_EQ(owner, 2);
    EXPECT_EQ(ky_bridge_log_port_member_state(0xFFFFFFFF, port_a), 0U);
    EXPECT_EQ(ky_bridge_log_port_member_state(0, port_b), not_found);
}

} // namespace
