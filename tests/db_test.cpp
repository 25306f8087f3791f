// The bridge database alone: the sizes that it accepts, its pools and their orders, and the operations on
// its records, called as the module's own units call them.
#include <algorithm>

#include "bridge/acl.h"
#include "support/module_fixture.h"
#include "support/pools.h"

namespace {

using sdk::Service;
using Lines = std::vector<std::string>;

class DbTest : public ModuleTest {
protected:
    static bridge_db_bridge_t *alloc_bridge(std::uint32_t is_internal = 0)
    {
        bridge_db_bridge_t *bridge = nullptr;
        EXPECT_EQ(__bridge_db_alloc_bridge(is_internal, &bridge), 0U);
        return bridge;
    }
    static bridge_db_virtual_port_t *alloc_virtual_port(bridge_db_bridge_t *bridge, std::uint32_t log_port,
                                                        std::uint16_t vlan, std::uint32_t egress_mode = 0)
    {
        bridge_db_virtual_port_t *vport = nullptr;
        EXPECT_EQ(__bridge_db_alloc_virtual_port(bridge, log_port, vlan, egress_mode, &vport), 0U);
        return vport;
    }
    static bridge_db_log_port_t *alloc_log_port(std::uint32_t log_port, std::uint8_t swid = 0)
    {
        bridge_db_log_port_t *port = nullptr;
        EXPECT_EQ(__bridge_db_alloc_log_port(log_port, swid, &port), 0U);
        return port;
    }
};

// The device has room for 5 bridges and 9 logical ports: a check against the other limit lets 6 bridges pass.
TEST_F(DbTest, SizesOutsideTheirRangesAreRefused)
{
    struct Case {
        std::uint32_t bridges, virtual_ports, multiple_vlan;
        ky_status_t status;
        std::string value_and_range; // empty: accepted
    };
    const std::string bridges = "max_bridge_num ", vports = "max_virtual_ports_num ",
                      vlans = "multiple_vlan_bridge_mode ";
    const Case cases[] = {
        {1, 1, 0, 0, ""},
        {5, 512, 0, 0, ""},
        {0, 1, 0, 14, bridges + "(0) exceeds range [1-5]"},
        {6, 1, 0, 14, bridges + "(6) exceeds range [1-5]"},
        {0xFFFFFFFF, 1, 0, 14, bridges + "(-1) exceeds range [1-5]"},
        {1, 0, 0, 14, vports + "(0) exceeds range [1-512]"},
        {1, 513, 0, 14, vports + "(513) exceeds range [1-512]"},
        {1, 1, 2, 13, vlans + "(2) exceeds range [0-1]"},
        {0, 0, 2, 14, bridges + "(0) exceeds range [1-5]"},
        {1, 0, 2, 14, vports + "(0) exceeds range [1-512]"},
    };
    sdk::set_limits(5, 9);
    for (const Case &c : cases) {
        EXPECT_EQ(start_mode(KY_BRIDGE_SDK_MODE_802_1D, c.bridges, c.virtual_ports, c.multiple_vlan), c.status);
        Lines expected = {"notice: SDK initiates in 802.1D mode\n"};
        if (c.status != 0)
            expected.insert(expected.end(),
                            {"error: bridge_init_param->sdk_mode_params.mode_1D." + c.value_and_range + ".\n",
                             "error: Unable to initialise bridge_db.\n"});
        EXPECT_EQ(take_lines(), expected);
        EXPECT_EQ(bridge_db != nullptr, c.status == 0);
        EXPECT_EQ(pools::built(), c.status == 0 ? 6U : 0U);
        EXPECT_EQ(ky_bridge_deinit(), 0U);
    }
}

// Memory may be short for any one pool: what needs it is refused as when it is used up, the rest works on,
// and the stop gives back exactly what was built.
TEST_F(DbTest, APoolThatCouldNotBeBuiltIsAnExhaustedOne)
{
    const std::string texts[] = {"bridge", "virtual port", "internal vlan", "log port"};
    for (unsigned unbuilt = 0; unbuilt < std::size(texts); ++unbuilt) {
        pools::cut_short(unbuilt + 1);
        ASSERT_EQ(start(), 0U);
        EXPECT_EQ(pools::built(), 5U);
        forget();
        bridge_db_bridge_t spare = {};
        spare.virtual_port_map.init();
        bridge_db_bridge_t *bridge = nullptr;
        bridge_db_virtual_port_t *vport = nullptr;
        bridge_db_log_port_t *port = nullptr;
        const ky_status_t answers[] = {__bridge_db_alloc_bridge(0, &bridge),
                                       __bridge_db_alloc_virtual_port(&spare, port_a, 5, 0, &vport),
                                       __bridge_db_alloc_int_vlan(bridge == nullptr ? &spare : bridge),
                                       __bridge_db_alloc_log_port(port_a, 0, &port)};
        for (unsigned at = 0; at < std::size(answers); ++at)
            EXPECT_EQ(answers[at], at == unbuilt ? std::uint32_t{KY_STATUS_NO_RESOURCES} : 0U) << texts[at];
        EXPECT_EQ(take_lines(), Lines{"error: Could not find free " + texts[unbuilt] + " entry in bridge_db.\n"});
        EXPECT_EQ(ky_bridge_deinit(), 0U);
        EXPECT_EQ(pools::built(), 0U);
    }
}

// The record freed last is handed out before all others; an empty pool writes nothing and takes nothing.
TEST_F(DbTest, PoolsHandOutTheRecordThatWasFreedLast)
{
    ASSERT_EQ(start(4, 2), 0U);
    bridge_db_bridge_t *const bridge = alloc_bridge(), *const other = alloc_bridge(), *const third = alloc_bridge();
    for (bridge_db_bridge_t *const each : {third, other, bridge})
        EXPECT_EQ(__bridge_db_alloc_int_vlan(each), 0U);
    EXPECT_EQ(third->int_vlan * 100 + other->int_vlan * 10 + bridge->int_vlan, 123);
    EXPECT_EQ(__bridge_db_free_int_vlan(&other->int_vlan) | __bridge_db_free_int_vlan(&third->int_vlan), 0U);
    EXPECT_EQ(other->int_vlan, 2) << "the bridge keeps the number until it is freed itself";
    EXPECT_EQ(__bridge_db_alloc_int_vlan(other), 0U);
    EXPECT_EQ(other->int_vlan, 1);

    bridge_db_virtual_port_t *const first = alloc_virtual_port(bridge, port_a, 5);
    bridge_db_virtual_port_t *const second = alloc_virtual_port(bridge, port_b, 5), *none = nullptr;
    forget();
    EXPECT_EQ(__bridge_db_alloc_virtual_port(bridge, port_c, 5, 0, &none), KY_STATUS_NO_RESOURCES);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(take_lines(), Lines{"error: Could not find free virtual port entry in bridge_db.\n"});
    EXPECT_EQ(__bridge_db_free_virtual_port(first, bridge) | __bridge_db_free_virtual_port(second, bridge), 0U);
    EXPECT_EQ(alloc_virtual_port(bridge, port_c, 6), second);
    EXPECT_EQ(alloc_virtual_port(bridge, port_a, 6), first);
}

// An internal bridge is hidden from users as if it did not exist, and only a VLAN that is owned names a bridge.
TEST_F(DbTest, LookupsFindWhatTheirCallerMaySee)
{
    ASSERT_EQ(start(), 0U);
    bridge_db_bridge_t *const open = alloc_bridge(0), *const internal = alloc_bridge(2), *found = nullptr;
    forget();
    for (const std::uint32_t flag : {1U, 2U, 0U}) {
        EXPECT_EQ(__bridge_db_get_bridge(internal->bridge_id, &found, flag), flag == 0 ? 21U : 0U);
        EXPECT_EQ(found, flag == 0 ? open : internal);
        EXPECT_EQ(__bridge_db_get_bridge(open->bridge_id, &found, flag), 0U);
        EXPECT_EQ(found, open);
        EXPECT_EQ(__bridge_db_get_bridge(3, &found, flag), KY_STATUS_ENTRY_NOT_FOUND);
    }
    bridge_db_int_vlan_t *vlan = nullptr;
    EXPECT_EQ(__bridge_db_get_int_vlan(1, &vlan), KY_STATUS_ENTRY_NOT_FOUND);
    ASSERT_EQ(__bridge_db_alloc_int_vlan(internal) | __bridge_db_get_int_vlan(1, &vlan), 0U);
    EXPECT_EQ(vlan->bridge_id, internal->bridge_id);
    const std::uint16_t unowned = 2;
    EXPECT_EQ(__bridge_db_free_int_vlan(&unowned), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(__bridge_db_free_int_vlan(&internal->int_vlan) | __bridge_db_free_bridge(internal), 0U);
    EXPECT_EQ(vlan->bridge_id, 0);
    EXPECT_EQ(__bridge_db_get_int_vlan(1, &vlan), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(__bridge_db_get_bridge(2, &found, 1), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(take_lines(), Lines{});
}

// A bridge has one virtual port of a logical port: the same port with another VLAN is a miss that says so.
TEST_F(DbTest, VirtualPortsAreFoundByPortAndVlan)
{
    ASSERT_EQ(start(), 0U);
    ky_bridge_log_verbosity_level_set(5);
    bridge_db_bridge_t *const bridge = alloc_bridge(), *const other = alloc_bridge();
    bridge_db_virtual_port_t *const vport = alloc_virtual_port(bridge, 0x10, 6, 1), *found = nullptr;
    EXPECT_EQ(vport->bridge_id, bridge->bridge_id);
    EXPECT_EQ(vport->log_port, 0x10U);
    EXPECT_EQ(vport->vlan, 6);
    EXPECT_EQ(vport->egress_mode, 1U);
    forget();
    EXPECT_EQ(__bridge_db_get_virtual_port_from_bridge(bridge, 0x10, 5, &found), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(__bridge_db_get_virtual_port_from_bridge(other, 0x1F, 6, &found), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(__bridge_db_free_virtual_port(vport, other), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(__bridge_db_get_virtual_port_from_bridge(bridge, 0x10, 6, &found), 0U);
    EXPECT_EQ(found, vport);
    EXPECT_EQ(__bridge_db_free_virtual_port(vport, bridge), 0U);
    EXPECT_EQ(take_lines(), Lines({"debug: __bridge_db_get_virtual_port_from_bridge: "
                                   "Could not find port(0x10) vlan(5) in bridge(1).\n",
                                   "debug: __bridge_db_get_virtual_port_from_bridge: "
                                   "Could not find port(0x1f) in bridge(2).\n",
                                   "error: Could not find port(0x10) in bridge(2).\n"}));
    EXPECT_TRUE(bridge->virtual_port_map.is_empty());
    EXPECT_EQ(vport->log_port + vport->vlan + vport->egress_mode + vport->bridge_id, 0U);
    EXPECT_EQ(__bridge_db_free_bridge(bridge) | __bridge_db_free_bridge(other), 0U);
}

// A port that comes back must not count VLANs from its last time; announced twice, or without memory for its
// counters, it must neither take a second record nor lose one.
TEST_F(DbTest, ALogicalPortHasOneRecordWithCountersOfItsOwn)
{
    sdk::set_limits(8, 1);
    ASSERT_EQ(start(), 0U);
    forget();
    bridge_db_log_port_t *found = nullptr, *refused = nullptr;
    for (int round = 0; round < 2; ++round) {
        device.faults.fail(Service::cl_malloc, 1, KY_STATUS_ERROR);
        EXPECT_EQ(__bridge_db_alloc_log_port(port_a, 0, &refused), KY_STATUS_NO_MEMORY);
        EXPECT_EQ(__bridge_db_get_log_port(port_a, &refused), KY_STATUS_ENTRY_NOT_FOUND);
        bridge_db_log_port_t *const port = alloc_log_port(port_a, 200);
        EXPECT_EQ(__bridge_db_alloc_log_port(port_a, 1, &refused), KY_STATUS_ENTRY_ALREADY_EXISTS);
        EXPECT_EQ(take_lines(), Lines{});
        EXPECT_EQ(__bridge_db_alloc_log_port(port_b, 1, &refused), KY_STATUS_NO_RESOURCES);
        EXPECT_EQ(take_lines(), Lines{"error: Could not find free log port entry in bridge_db.\n"});
        EXPECT_EQ(refused, nullptr);
        EXPECT_EQ(take_calls(), Lines({"cl_malloc 4097 bytes -> 1 (planned fault)", "cl_malloc 4097 bytes"}));

        ASSERT_EQ(__bridge_db_get_log_port(port_a, &found), 0U);
        EXPECT_EQ(found, port);
        EXPECT_EQ(port->swid, 200);
        EXPECT_EQ(port->eacl_bound_cnt, 0U);
        EXPECT_EQ(port->eacl_region, nullptr);
        EXPECT_EQ(std::count(port->vlan_ref_cnt, port->vlan_ref_cnt + 4097, 0), 4097);
        std::fill_n(port->vlan_ref_cnt, 4097, std::uint8_t{0xAA});
        port->eacl_bound_cnt = 3;
        port->eacl_region = &bridge_db->egress_region;
        EXPECT_EQ(__bridge_db_free_log_port(port_a), 0U);
        EXPECT_EQ(take_calls(), Lines{"cl_free 4097 bytes"});
        EXPECT_EQ(port->vlan_ref_cnt, nullptr);
        EXPECT_EQ(__bridge_db_free_log_port(port_a), KY_STATUS_ENTRY_NOT_FOUND);
    }
}

TEST_F(DbTest, BackReferencesAreKeptByVlan)
{
    ASSERT_EQ(start(), 0U);
    bridge_db_bridge_t *const bridge = alloc_bridge(), *const other = alloc_bridge();
    bridge_db_virtual_port_t *const late = alloc_virtual_port(bridge, port_a, 4094);
    bridge_db_virtual_port_t *const early = alloc_virtual_port(other, port_a, 0);
    bridge_db_log_port_t *port = nullptr;
    forget();
    EXPECT_EQ(__bridge_db_add_virtual_port_to_log_port_back_ref(late, &port), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(take_lines(), Lines{"error: __bridge_db_get_log_port failed when adding eACL.\n"});

    bridge_db_log_port_t *const known = alloc_log_port(port_a);
    EXPECT_EQ(__bridge_db_add_virtual_port_to_log_port_back_ref(late, &port), 0U);
    EXPECT_EQ(port, known);
    EXPECT_EQ(__bridge_db_remove_virtual_port_to_log_port_back_ref(early, port), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(take_lines(), Lines{"error: Failed to retreive v_port from log_port.\n"});
    EXPECT_EQ(__bridge_db_add_virtual_port_to_log_port_back_ref(early, &port), 0U);
    EXPECT_EQ(port->back_ref_map.first(), early);
    EXPECT_EQ(port->back_ref_map.next(early), late);
    EXPECT_EQ(__bridge_db_remove_virtual_port_to_log_port_back_ref(early, port), 0U);
    EXPECT_EQ(port->back_ref_map.first(), late);
    EXPECT_EQ(port->back_ref_map.next(late), nullptr);
    EXPECT_EQ(__bridge_db_remove_virtual_port_to_log_port_back_ref(late, port), 0U);
}

} // namespace
