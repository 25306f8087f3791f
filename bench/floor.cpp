#include "bench/floor.h"

#include <cstddef>
#include <cstring>

#include "bridge/db.h"

namespace bench::floor {
namespace {

template <typename Record> Record *record_of(cl_map_item_t *item, std::size_t link)
{
    return reinterpret_cast<Record *>(reinterpret_cast<char *>(item) - link);
}

bridge_db_bridge_t *find_bridge(std::uint16_t bridge_id)
{
    return record_of<bridge_db_bridge_t>(cl_qmap_get(&bridge_db->bridge_map.map, bridge_id),
                                         offsetof(bridge_db_bridge_t, map_item));
}

bridge_db_log_port_t *find_port(std::uint32_t log_port)
{
    cl_map_item_t *const item = cl_qmap_get(&bridge_db->log_port_map.map, log_port);
    return item == cl_qmap_end(&bridge_db->log_port_map.map)
               ? nullptr
               : record_of<bridge_db_log_port_t>(item, offsetof(bridge_db_log_port_t, map_item));
}

template <typename Record> Record *take(kybridge::Pool<Record> &pool)
{
    return reinterpret_cast<Record *>(cl_qcpool_get(&pool.pool.qcpool));
}

void put(cl_qpool_t &pool, cl_pool_item_t *item)
{
    cl_qpool_put(&pool, item);
}

/// Reads and writes back a port's RSTP state.
void refresh_rstp(const bridge_db_log_port_t &port)
{
    std::uint32_t value;
    mstp_mode_get(KY_ACCESS_CMD_GET, port.swid, &value);
    if (value != KY_MSTP_MODE_RSTP)
        return;
    rstp_port_state_get(KY_ACCESS_CMD_GET, port.log_port, &value);
    rstp_port_state_set(KY_ACCESS_CMD_SET, port.log_port, &value);
}

void refresh_all_rstp()
{
    const cl_qmap_t *const map = &bridge_db->log_port_map.map;
    for (cl_map_item_t *item = cl_qmap_head(map); item != cl_qmap_end(map);
         item = cl_qmap_get_next(map, cl_qmap_key(item))) {
        const auto *const port = record_of<bridge_db_log_port_t>(item, offsetof(bridge_db_log_port_t, map_item));
        if (port->eacl_bound_cnt != 0)
            refresh_rstp(*port);
    }
}

void ask_port_module(std::uint32_t log_port)
{
    std::uint8_t answer;
    port_db_check_port_mode_router_port(log_port);
    port_swid_alloc_get(KY_ACCESS_CMD_GET, log_port, &answer);
    swid_validation_func_ptr(answer);
    port_lag_member_state_get(KY_ACCESS_CMD_GET, log_port, &answer);
}

void write_rule(std::uint32_t region_id, const bridge_db_bridge_t &bridge, std::uint32_t log_port,
                std::uint32_t port_mask, std::uint16_t key_vlan, std::uint16_t new_vlan, std::uint16_t offset)
{
    ky_acl_rules_params_t rule = {};
    rule.cmd = KY_ACCESS_CMD_SET;
    rule.region_id = region_id;
    rule.rule_count = 1;
    rule.offset = offset;
    rule.valid = 1;
    rule.key.key_type = KY_ACL_KEY_TYPE_BRIDGE;
    rule.key.vlan = key_vlan;
    rule.key.log_port = log_port;
    rule.mask.key_type = KY_ACL_KEY_TYPE_BRIDGE;
    rule.mask.vlan = 0xFFFF;
    rule.mask.log_port = port_mask;
    rule.action_selector = KY_ACL_ACTION_SET_VLAN_AND_LEARN;
    rule.new_vlan = new_vlan;
    rule.reserved_140 = 0xFFFFFFFF;
    rule.dont_learn = bridge.learning_mode == KY_FDB_LEARN_MODE_DONT_LEARN ? 1 : 0;
    acl_rules_set(&rule);
}

void delete_rule(std::uint32_t region_id, std::uint16_t offset)
{
    ky_acl_rules_params_t rule = {};
    rule.cmd = KY_ACCESS_CMD_DELETE;
    rule.region_id = region_id;
    rule.rule_count = 1;
    rule.offset = offset;
    rule.reserved_140 = 0xFFFFFFFF;
    acl_rules_set(&rule);
}

void write_ingress_rule(const bridge_db_bridge_t &bridge, const bridge_db_virtual_port_t &vport)
{
    write_rule(bridge_db->ingress_region.region_id, bridge, vport.log_port, 0xFFFFFFFF, vport.vlan, bridge.int_vlan,
               vport.ingress_offset->offset);
}

void write_egress_rule(const bridge_db_bridge_t &bridge, const bridge_db_virtual_port_t &vport)
{
    write_rule(bridge_db->egress_region.region_id, bridge, 0, 0, bridge.int_vlan, vport.vlan,
               vport.egress_offset->offset);
}

void bind(std::uint32_t log_port, std::uint32_t acl_id, std::uint32_t direction)
{
    ky_acl_bind_params_t binding = {KY_ACCESS_CMD_BIND, acl_id, direction, log_port};
    acl_bind_port(&binding);
}

void unbind(std::uint32_t log_port, std::uint32_t direction)
{
    ky_acl_bind_params_t binding = {KY_ACCESS_CMD_GET, 0, direction, log_port};
    acl_bind_port_get(&binding);
    binding.cmd = KY_ACCESS_CMD_UNBIND;
    acl_unbind_port(&binding);
}

} // namespace

std::uint16_t create_bridge()
{
    bridge_db_bridge_t *const bridge = take(bridge_db->bridge_pool);
    bridge->ref_cnt = 0;
    bridge->is_internal = 0;
    bridge->egress_rule_ref_cnt = 0;
    bridge->acl_bound[0] = 0;
    bridge->acl_bound[1] = 0;
    bridge->vlan_group = KY_VLAN_GROUP_NONE;
    bridge->egress_offset = nullptr;
    bridge->learning_mode = 0;
    cl_qmap_init(&bridge->virtual_port_map.map);
    cl_qmap_insert(&bridge_db->bridge_map.map, bridge->bridge_id, &bridge->map_item);

    bridge_db_int_vlan_t *const int_vlan = take(bridge_db->int_vlan_pool);
    int_vlan->bridge_id = bridge->bridge_id;
    cl_qmap_insert(&bridge_db->int_vlan_map.map, int_vlan->int_vlan_id, &int_vlan->map_item);
    bridge->int_vlan = int_vlan->int_vlan_id;

    refresh_all_rstp();
    return bridge->bridge_id;
}

void destroy_bridge(std::uint16_t bridge_id)
{
    bridge_db_bridge_t *const bridge = find_bridge(bridge_id);
    auto *const int_vlan = record_of<bridge_db_int_vlan_t>(
        cl_qmap_remove(&bridge_db->int_vlan_map.map, bridge->int_vlan), offsetof(bridge_db_int_vlan_t, map_item));
    int_vlan->bridge_id = 0;
    put(bridge_db->int_vlan_pool.pool, &int_vlan->pool_item);
    cl_qmap_remove(&bridge_db->bridge_map.map, bridge_id);
    put(bridge_db->bridge_pool.pool, &bridge->pool_item);
    refresh_all_rstp();
}

void add(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan, std::uint32_t egress_mode)
{
    // What the validation must find out.
    bridge_db_bridge_t *const bridge = find_bridge(bridge_id);
    cl_qmap_head(&bridge->virtual_port_map.map);
    cl_qmap_get(&find_port(log_port)->back_ref_map.map, vlan);
    ask_port_module(log_port);

    bridge_db_virtual_port_t *const vport = take(bridge_db->virtual_port_pool);
    vport->bridge_id = bridge_id;
    vport->log_port = log_port;
    vport->vlan = vlan;
    vport->egress_mode = egress_mode;
    cl_qmap_insert(&bridge->virtual_port_map.map, log_port, &vport->bridge_map_item);

    vport->ingress_offset = take(bridge_db->ingress_region.offset_pool);
    write_ingress_rule(*bridge, *vport);

    // Two steps look the port up, each for itself.
    bridge_db_log_port_t *port = find_port(log_port);
    if (bridge->egress_rule_ref_cnt++ == 0) {
        vport->egress_offset = take(bridge_db->egress_region.offset_pool);
        bridge->egress_offset = vport->egress_offset;
        write_egress_rule(*bridge, *vport);
    } else {
        vport->egress_offset = bridge->egress_offset;
    }
    if (port->eacl_bound_cnt++ == 0) {
        bind(log_port, bridge_db->egress_region.acl_id, KY_ACL_DIRECTION_EGRESS);
        port->eacl_region = &bridge_db->egress_region;
    }
    port = find_port(log_port);
    cl_qmap_insert(&port->back_ref_map.map, vlan, &vport->back_ref_map_item);

    refresh_rstp(*port);

    ky_vlan_entry_t entries[2] = {{vlan, 0, egress_mode}, {bridge->int_vlan, 0, egress_mode}};
    const bool is_joined_by_own = bridge->int_vlan == vlan || cl_qmap_get(&port->back_ref_map.map, bridge->int_vlan) !=
                                                                  cl_qmap_end(&port->back_ref_map.map);
    vlan_port_multi_vlans_set(KY_ACCESS_CMD_ADD, log_port, is_joined_by_own ? 1 : 2, entries);
    ++port->vlan_ref_cnt[vlan];
    ++port->vlan_ref_cnt[bridge->int_vlan];
}

void remove(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan)
{
    bridge_db_bridge_t *const bridge = find_bridge(bridge_id);
    ask_port_module(log_port);
    auto *const vport = record_of<bridge_db_virtual_port_t>(cl_qmap_get(&bridge->virtual_port_map.map, log_port),
                                                            offsetof(bridge_db_virtual_port_t, bridge_map_item));
    bridge_db_log_port_t *port = find_port(log_port);

    ky_vlan_entry_t entries[2];
    std::uint32_t count = 0;
    if (port->vlan_ref_cnt[vlan]-- == 1)
        entries[count++] = {vlan, 0, vport->egress_mode};
    if (port->vlan_ref_cnt[bridge->int_vlan]-- == 1)
        entries[count++] = {bridge->int_vlan, 0, vport->egress_mode};
    if (count != 0)
        vlan_port_multi_vlans_set(KY_ACCESS_CMD_DELETE, log_port, count, entries);

    port = find_port(log_port);
    if (--port->eacl_bound_cnt == 0) {
        unbind(log_port, KY_ACL_DIRECTION_EGRESS);
        port->eacl_region = nullptr;
    }
    if (--bridge->egress_rule_ref_cnt == 0) {
        delete_rule(bridge_db->egress_region.region_id, bridge->egress_offset->offset);
        put(bridge_db->egress_region.offset_pool.pool, &bridge->egress_offset->pool_item);
        bridge->egress_offset = nullptr;
    }
    delete_rule(bridge_db->ingress_region.region_id, vport->ingress_offset->offset);
    put(bridge_db->ingress_region.offset_pool.pool, &vport->ingress_offset->pool_item);
    cl_qmap_remove(&port->back_ref_map.map, vlan);

    refresh_rstp(*port);

    cl_qmap_remove(&bridge->virtual_port_map.map, log_port);
    put(bridge_db->virtual_port_pool.pool, &vport->pool_item);
}

ky_status_t bridge_port_set(ky_access_cmd_t, std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan,
                            std::uint32_t, std::uint32_t)
{
    remove(bridge_id, log_port, vlan);
    return 0;
}

void announce(std::uint32_t log_port, std::uint8_t swid)
{
    swid_validation_func_ptr(swid);
    cl_qmap_get(&bridge_db->log_port_map.map, log_port);
    bridge_db_log_port_t *const port = take(bridge_db->log_port_pool);
    port->log_port = log_port;
    port->swid = swid;
    port->eacl_region = nullptr;
    port->eacl_bound_cnt = 0;
    cl_qmap_init(&port->back_ref_map.map);
    cl_qmap_insert(&bridge_db->log_port_map.map, log_port, &port->map_item);
    port->vlan_ref_cnt = static_cast<std::uint8_t *>(cl_malloc(BRIDGE_DB_VLAN_REF_CNT_SIZE));
    std::memset(port->vlan_ref_cnt, 0, BRIDGE_DB_VLAN_REF_CNT_SIZE);
    bind(log_port, bridge_db->ingress_region.acl_id, KY_ACL_DIRECTION_INGRESS);
}

void clear_and_release(std::uint32_t log_port)
{
    bridge_db_log_port_t *const port = find_port(log_port);
    const cl_qmap_t *const vports = &port->back_ref_map.map;
    for (cl_map_item_t *item = cl_qmap_head(vports); item != cl_qmap_end(vports); item = cl_qmap_head(vports)) {
        const auto *const vport =
            record_of<bridge_db_virtual_port_t>(item, offsetof(bridge_db_virtual_port_t, back_ref_map_item));
        ::bridge_port_set(KY_ACCESS_CMD_DELETE, vport->bridge_id, log_port, vport->vlan, vport->egress_mode, 1);
    }
    unbind(log_port, KY_ACL_DIRECTION_INGRESS);
    cl_qmap_remove(&bridge_db->log_port_map.map, log_port);
    cl_free(port->vlan_ref_cnt);
    port->vlan_ref_cnt = nullptr;
    put(bridge_db->log_port_pool.pool, &port->pool_item);
}

void set_learning_mode(std::uint16_t bridge_id, std::uint32_t learning_mode)
{
    bridge_db_bridge_t *const bridge = find_bridge(bridge_id);
    bridge->learning_mode = learning_mode;
    const cl_qmap_t *const vports = &bridge->virtual_port_map.map;
    for (cl_map_item_t *item = cl_qmap_head(vports); item != cl_qmap_end(vports); item = cl_qmap_next(item)) {
        const auto *const vport =
            record_of<bridge_db_virtual_port_t>(item, offsetof(bridge_db_virtual_port_t, bridge_map_item));
        write_ingress_rule(*bridge, *vport);
        if (item == cl_qmap_head(vports))
            write_egress_rule(*bridge, *vport);
    }
}

std::uint32_t get_learning_mode(std::uint16_t bridge_id)
{
    return find_bridge(bridge_id)->learning_mode;
}

std::uint32_t list_ports(std::uint16_t bridge_id, ky_bridge_port_t *list, std::uint32_t capacity)
{
    const cl_qmap_t *const vports = &find_bridge(bridge_id)->virtual_port_map.map;
    std::uint32_t written = 0;
    for (cl_map_item_t *item = cl_qmap_head(vports); item != cl_qmap_end(vports) && written < capacity;
         item = cl_qmap_next(item)) {
        const auto *const vport =
            record_of<bridge_db_virtual_port_t>(item, offsetof(bridge_db_virtual_port_t, bridge_map_item));
        list[written].log_port = vport->log_port;
        list[written].vlan = vport->vlan;
        list[written].egress_mode = vport->egress_mode;
        ++written;
    }
    return written;
}

std::uint16_t int_vlan_of_bridge(std::uint16_t bridge_id)
{
    return find_bridge(bridge_id)->int_vlan;
}

std::uint32_t list_int_vlans(std::uint16_t *vids, std::uint32_t capacity)
{
    const cl_qmap_t *const map = &bridge_db->int_vlan_map.map;
    std::uint32_t written = 0;
    for (cl_map_item_t *item = cl_qmap_head(map); item != cl_qmap_end(map) && written < capacity;
         item = cl_qmap_next(item))
        vids[written++] = record_of<bridge_db_int_vlan_t>(item, offsetof(bridge_db_int_vlan_t, map_item))->int_vlan_id;
    return written;
}

std::uint32_t list_int_vlans_of_port(std::uint32_t log_port, std::uint16_t *vids, std::uint32_t capacity)
{
    const cl_qmap_t *const vports = &find_port(log_port)->back_ref_map.map;
    std::uint32_t written = 0;
    for (cl_map_item_t *item = cl_qmap_head(vports); item != cl_qmap_end(vports) && written < capacity;
         item = cl_qmap_next(item)) {
        const auto *const vport =
            record_of<bridge_db_virtual_port_t>(item, offsetof(bridge_db_virtual_port_t, back_ref_map_item));
        vids[written++] = find_bridge(vport->bridge_id)->int_vlan;
    }
    return written;
}

std::uint16_t bridge_of_int_vlan(std::uint16_t int_vlan)
{
    return record_of<bridge_db_int_vlan_t>(cl_qmap_get(&bridge_db->int_vlan_map.map, int_vlan),
                                           offsetof(bridge_db_int_vlan_t, map_item))
        ->bridge_id;
}

bool is_member(std::uint32_t log_port)
{
    return cl_qmap_count(&find_port(log_port)->back_ref_map.map) != 0;
}

std::uint16_t vlan_group_of_bridge(std::uint16_t bridge_id)
{
    return find_bridge(bridge_id)->vlan_group;
}

void acls_of_port(std::uint32_t log_port, std::uint32_t *ingress_acl, std::uint32_t *egress_acl)
{
    *ingress_acl = bridge_db->ingress_region.acl_id;
    *egress_acl =
        find_port(log_port)->eacl_bound_cnt != 0 ? bridge_db->egress_region.acl_id : std::uint32_t{KY_ACL_ID_NONE};
}

} // namespace bench::floor
