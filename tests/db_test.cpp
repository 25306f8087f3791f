// The bridge database alone: the sizes that it accepts, pools that could not be built, and the operations on
// its records, called as the module's own units call them.
#include <algorithm>
#include <tuple>

#include "support/module_fixture.h"
#include "support/pools.h"

namespace {

using sdk::Service;
using Lines = std::vector<std::string>;

class DbTest : public ModuleTest {
protected:
    static bridge_db_bridge_t *alloc_bridge()
    {
        bridge_db_bridge_t *bridge = nullptr;
        EXPECT_EQ(__bridge_db_alloc_bridge(0, &bridge), 0U);
        return bridge;
    }
    static bridge_db_virtual_port_t *alloc_virtual_port(bridge_db_bridge_t *bridge, std::uint32_t log_port,
                                                        std::uint16_t vlan)
    {
        bridge_db_virtual_port_t *vport = nullptr;
        EXPECT_EQ(__bridge_db_alloc_virtual_port(bridge, log_port, vlan, 0, &vport), 0U);
        return vport;
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
        {5, 512, 0, 0, ""},
        {0, 1, 0, 14, bridges + "(0) exceeds range [1-5]"},
        {6, 1, 0, 14, bridges + "(6) exceeds range [1-5]"},
        {1, 0, 0, 14, vports + "(0) exceeds range [1-512]"},
        {1, 513, 0, 14, vports + "(513) exceeds range [1-512]"},
        {1, 1, 2, 13, vlans + "(2) exceeds range [0-1]"},
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
        EXPECT_EQ(ky_bridge_deinit(), 0U);
        ky_bridge_log_verbosity_level_set(0);
        EXPECT_EQ(start_mode(KY_BRIDGE_SDK_MODE_802_1D, c.bridges, c.virtual_ports, c.multiple_vlan), c.status);
        EXPECT_EQ(take_lines(), Lines{});
        ky_bridge_log_verbosity_level_set(3);
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

// A record serves many lives, and nothing of one may show in the next.
TEST_F(DbTest, RecordsAreClearedWhenTheyAreFreedAndWhenTheyAreTaken)
{
    const auto expect_clear = [](const bridge_db_bridge_t &bridge) {
        EXPECT_EQ(std::tuple(bridge.int_vlan, bridge.ref_cnt, bridge.is_internal, bridge.egress_rule_ref_cnt),
                  std::tuple(0, 0, 0, 0));
        EXPECT_EQ(std::tuple(bridge.acl_bound[0], bridge.acl_bound[1], bridge.vlan_group), std::tuple(0, 0, 0xFFFF));
        EXPECT_EQ(bridge.egress_offset, nullptr);
    };
    bridge_acl_offset_t offset = {};
    ASSERT_EQ(start(), 0U);
    bridge_db_bridge_t *const bridge = alloc_bridge();
    const auto use = [&] {
        bridge->int_vlan = 7;
        bridge->ref_cnt = bridge->is_internal = bridge->egress_rule_ref_cnt = bridge->learning_mode = 7;
        bridge->acl_bound[0] = bridge->acl_bound[1] = 7;
        bridge->vlan_group = 7;
        bridge->egress_offset = &offset;
    };
    use();
    EXPECT_EQ(__bridge_db_free_bridge(bridge), 0U);
    expect_clear(*bridge);
    use();
    EXPECT_EQ(alloc_bridge(), bridge);
    expect_clear(*bridge);
    EXPECT_EQ(bridge->learning_mode, 0U);

    EXPECT_EQ(__bridge_db_alloc_int_vlan(bridge), 0U);
    bridge_db_int_vlan_t *const int_vlan = bridge_db->int_vlan_map.first();
    EXPECT_EQ(__bridge_db_free_int_vlan(&bridge->int_vlan), 0U);
    EXPECT_EQ(int_vlan->bridge_id, 0);
    EXPECT_EQ(__bridge_db_free_int_vlan(&bridge->int_vlan), KY_STATUS_ENTRY_NOT_FOUND);

    bridge_db_virtual_port_t *const vport = alloc_virtual_port(bridge, port_a, 100);
    vport->egress_mode = 1;
    vport->ingress_offset = vport->egress_offset = &offset;
    EXPECT_EQ(__bridge_db_free_virtual_port(vport, bridge), 0U);
    EXPECT_EQ(std::tuple(vport->bridge_id, vport->log_port, vport->vlan, vport->egress_mode), std::tuple(0, 0, 0, 0));
    EXPECT_TRUE(vport->ingress_offset == nullptr && vport->egress_offset == nullptr);
    vport->ingress_offset = vport->egress_offset = &offset;
    EXPECT_EQ(alloc_virtual_port(bridge, port_a, 100), vport);
    EXPECT_TRUE(vport->ingress_offset == nullptr && vport->egress_offset == nullptr);
    EXPECT_EQ(__bridge_db_free_virtual_port(vport, bridge), 0U);

    bridge_db_log_port_t *port = nullptr;
    ASSERT_EQ(__bridge_db_alloc_log_port(port_a, 5, &port), 0U);
    port->eacl_bound_cnt = 7;
    port->eacl_region = &bridge_db->egress_region;
    EXPECT_EQ(__bridge_db_free_log_port(port_a), 0U);
    EXPECT_EQ(std::tuple(port->log_port, port->swid, port->eacl_bound_cnt), std::tuple(0, 0, 0));
    EXPECT_TRUE(port->eacl_region == nullptr && port->vlan_ref_cnt == nullptr);
    port->eacl_region = &bridge_db->egress_region;
    ASSERT_EQ(__bridge_db_alloc_log_port(port_a, 5, &port), 0U);
    EXPECT_EQ(port->eacl_region, nullptr);
}

// A bridge has one virtual port of a logical port: the same port with another VLAN is a miss that says so.
TEST_F(DbTest, VirtualPortsAreFoundByPortAndVlan)
{
    ASSERT_EQ(start(8, 1), 0U);
    ky_bridge_log_verbosity_level_set(5);
    bridge_db_bridge_t *const bridge = alloc_bridge(), *const other = alloc_bridge();
    bridge_db_virtual_port_t *const vport = alloc_virtual_port(bridge, 0x10, 6), *found = nullptr;
    forget();
    EXPECT_EQ(__bridge_db_get_virtual_port_from_bridge(bridge, 0x10, 5, &found), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(__bridge_db_get_virtual_port_from_bridge(other, 0x1F, 6, &found), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(__bridge_db_free_virtual_port(vport, other), KY_STATUS_ENTRY_NOT_FOUND);
    EXPECT_EQ(__bridge_db_alloc_virtual_port(other, port_c, 5, 0, &found), KY_STATUS_NO_RESOURCES);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(__bridge_db_get_virtual_port_from_bridge(bridge, 0x10, 6, &found), 0U);
    EXPECT_EQ(found, vport);
    EXPECT_EQ(take_lines(), Lines({"debug: __bridge_db_get_virtual_port_from_bridge: "
                                   "Could not find port(0x10) vlan(5) in bridge(1).\n",
                                   "debug: __bridge_db_get_virtual_port_from_bridge: "
                                   "Could not find port(0x1f) in bridge(2).\n",
                                   "error: Could not find port(0x10) in bridge(2).\n",
                                   "error: Could not find free virtual port entry in bridge_db.\n"}));
    EXPECT_EQ(__bridge_db_free_virtual_port(vport, bridge), 0U);
    EXPECT_EQ(__bridge_db_free_bridge(bridge) | __bridge_db_free_bridge(other), 0U);
}

// A port that comes back must not count VLANs from its last time; announced twice, or without memory for its
// counters, it must neither take a second record nor lose one.
TEST_F(DbTest, ALogicalPortHasOneRecordWithCountersOfItsOwn)
{
    sdk::set_limits(8, 1);
    ASSERT_EQ(start(), 0U);
    forget();
    for (int round = 0; round < 2; ++round) {
        bridge_db_log_port_t *port = nullptr, *refused = nullptr;
        device.faults.fail(Service::cl_malloc, 1, KY_STATUS_ERROR);
        EXPECT_EQ(__bridge_db_alloc_log_port(port_a, 0, &refused), KY_STATUS_NO_MEMORY);
        EXPECT_EQ(__bridge_db_get_log_port(port_a, &refused), KY_STATUS_ENTRY_NOT_FOUND);
        ASSERT_EQ(__bridge_db_alloc_log_port(port_a, 200, &port), 0U);
        EXPECT_EQ(__bridge_db_alloc_log_port(port_a, 1, &refused), KY_STATUS_ENTRY_ALREADY_EXISTS);
        EXPECT_EQ(refused, nullptr);
        EXPECT_EQ(port_record(port_a), port);
        EXPECT_EQ(port->swid, 200);
        EXPECT_EQ(port->eacl_bound_cnt, 0U);
        EXPECT_EQ(port->eacl_region, nullptr);
        EXPECT_EQ(std::count(port->vlan_ref_cnt, port->vlan_ref_cnt + 4097, 0), 4097);
        std::fill_n(port->vlan_ref_cnt, 4097, std::uint8_t{0xAA});
        port->eacl_bound_cnt = 3;
        port->eacl_region = &bridge_db->egress_region;
        EXPECT_EQ(__bridge_db_free_log_port(port_a), 0U);
        EXPECT_EQ(__bridge_db_free_log_port(port_a), KY_STATUS_ENTRY_NOT_FOUND);
        EXPECT_EQ(take_services(), "cl_malloc cl_malloc cl_free");
        EXPECT_EQ(take_lines(), Lines{});
    }
}

TEST_F(DbTest, BackReferencesAreKeptByVlan)
{
    ASSERT_EQ(start(), 0U);
    bridge_db_virtual_port_t *const late = alloc_virtual_port(alloc_bridge(), port_a, 4094);
    bridge_db_virtual_port_t *const early = alloc_virtual_port(alloc_bridge(), port_a, 0);
    bridge_db_log_port_t *port = nullptr, *known = nullptr;
    forget();
    EXPECT_EQ(__bridge_db_add_virtual_port_to_log_port_back_ref(late, &port), KY_STATUS_ENTRY_NOT_FOUND);
    ASSERT_EQ(__bridge_db_alloc_log_port(port_a, 0, &known), 0U);
    EXPECT_EQ(__bridge_db_add_virtual_port_to_log_port_back_ref(late, &port), 0U);
    EXPECT_EQ(port, known);
    EXPECT_EQ(__bridge_db_remove_virtual_port_to_log_port_back_ref(early, port), KY_STATUS_PARAM_ERROR);
    EXPECT_EQ(take_lines(), Lines({"error: __bridge_db_get_log_port failed when adding eACL.\n",
                                   "error: Failed to retreive v_port from log_port.\n"}));
    EXPECT_EQ(__bridge_db_add_virtual_port_to_log_port_back_ref(early, &port), 0U);
    EXPECT_EQ(port->back_ref_map.first(), early);
    EXPECT_EQ(port->back_ref_map.next(early), late);
    EXPECT_EQ(__bridge_db_remove_virtual_port_to_log_port_back_ref(early, port), 0U);
    EXPECT_EQ(port->back_ref_map.first(), late);
    EXPECT_EQ(port->back_ref_map.next(late), nullptr);
    EXPECT_EQ(__bridge_db_remove_virtual_port_to_log_port_back_ref(late, port), 0U);
}

} // namespace
