#include "bench/floor.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "bridge/db.h"

namespace bench::floor {

std::uint32_t log_verbosity = 3;

namespace {

/// Ends the run: the floor has no undo, and nothing that is measured is refused.
[[noreturn, gnu::cold, gnu::noinline]] void refuse()
{
    std::abort();
}

void require(bool holds)
{
    if (!holds) [[unlikely]]
        refuse();
}

void accept(ky_status_t status)
{
    require(status == KY_STATUS_SUCCESS);
}

[[gnu::cold, gnu::noinline]] void write_trace(const char *format, int line, const char *function)
{
    ky_log(KY_LOG_FUNCTION_TRACE, "BRIDGE", format, __FILE__, line, function, function);
}

/// The trace lines of one function of the module. Inlined by force, else the compiler keeps the object in memory for
/// the sake of the lines that are never written.
class Trace {
public:
    [[gnu::always_inline]] explicit Trace(int line = __builtin_LINE(), const char *function = __builtin_FUNCTION())
        : line_(line), function_(function)
    {
        if (log_verbosity >= 6) [[unlikely]]
            write_trace("%s[%d]- %s: %s: [\n", line_, function_);
    }
    [[gnu::always_inline]] ~Trace()
    {
        if (log_verbosity >= 6) [[unlikely]]
            write_trace("%s[%d]- %s: %s: ]\n", line_, function_);
    }
    Trace(const Trace &) = delete;
    Trace &operator=(const Trace &) = delete;

private:
    int line_;
    const char *function_;
};

template <typename Record> Record *record_of(cl_map_item_t *item, std::size_t link)
{
    return reinterpret_cast<Record *>(reinterpret_cast<char *>(item) - link);
}

bridge_db_virtual_port_t *vport_of_bridge(cl_map_item_t *item)
{
    return record_of<bridge_db_virtual_port_t>(item, offsetof(bridge_db_virtual_port_t, bridge_map_item));
}

bridge_db_virtual_port_t *vport_of_port(cl_map_item_t *item)
{
    return record_of<bridge_db_virtual_port_t>(item, offsetof(bridge_db_virtual_port_t, back_ref_map_item));
}

bridge_db_bridge_t *find_bridge(std::uint16_t bridge_id, std::uint32_t is_internal)
{
    const Trace trace;
    const cl_qmap_t *const map = &bridge_db->bridge_map.map;
    cl_map_item_t *const item = cl_qmap_get(map, bridge_id);
    require(item != cl_qmap_end(map));
    auto *const bridge = record_of<bridge_db_bridge_t>(item, offsetof(bridge_db_bridge_t, map_item));
    require(bridge->is_internal == 0 || is_internal != 0);
    return bridge;
}

/// @return nullptr: the module does not know the port
bridge_db_log_port_t *look_up_port(std::uint32_t log_port)
{
    const cl_qmap_t *const map = &bridge_db->log_port_map.map;
    cl_map_item_t *const item = cl_qmap_get(map, log_port);
    return item == cl_qmap_end(map) ? nullptr
                                    : record_of<bridge_db_log_port_t>(item, offsetof(bridge_db_log_port_t, map_item));
}

bridge_db_log_port_t *find_port(std::uint32_t log_port)
{
    const Trace trace;
    bridge_db_log_port_t *const port = look_up_port(log_port);
    require(port != nullptr);
    return port;
}

template <typename Record> Record *take(kybridge::Pool<Record> &pool)
{
    auto *const record = reinterpret_cast<Record *>(cl_qcpool_get(&pool.pool.qcpool));
    require(record != nullptr);
    return record;
}

void put(cl_qpool_t &pool, cl_pool_item_t *item)
{
    cl_qpool_put(&pool, item);
}

/// Reads and writes back a port's RSTP state.
void refresh_rstp(const bridge_db_log_port_t &port)
{
    const Trace trace;
    std::uint32_t value;
    accept(mstp_mode_get(KY_ACCESS_CMD_GET, port.swid, &value));
    if (value != KY_MSTP_MODE_RSTP)
        return;
    accept(rstp_port_state_get(KY_ACCESS_CMD_GET, port.log_port, &value));
    accept(rstp_port_state_set(KY_ACCESS_CMD_SET, port.log_port, &value));
}

void refresh_all_rstp()
{
    const Trace trace;
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
    require(port_db_check_port_mode_router_port(log_port) != 0);
    accept(port_swid_alloc_get(KY_ACCESS_CMD_GET, log_port, &answer));
    require(swid_validation_func_ptr != nullptr);
    accept(swid_validation_func_ptr(answer));
    accept(port_lag_member_state_get(KY_ACCESS_CMD_GET, log_port, &answer));
    require(answer == 0);
}

void check_range(std::uint16_t vlan, std::uint32_t egress_mode)
{
    require(vlan <= KY_VLAN_ID_MAX);
    require(egress_mode <= KY_EGRESS_MODE_UNTAGGED);
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
    accept(acl_rules_set(&rule));
}

void delete_rule(std::uint32_t region_id, std::uint16_t offset)
{
    ky_acl_rules_params_t rule = {};
    rule.cmd = KY_ACCESS_CMD_DELETE;
    rule.region_id = region_id;
    rule.rule_count = 1;
    rule.offset = offset;
    rule.reserved_140 = 0xFFFFFFFF;
    accept(acl_rules_set(&rule));
}

/// A rule of a virtual port without one takes an offset first.
void write_ingress_rule(const bridge_db_bridge_t &bridge, bridge_db_virtual_port_t &vport)
{
    const Trace trace;
    if (vport.ingress_offset == nullptr)
        vport.ingress_offset = take(bridge_db->ingress_region.offset_pool);
    write_rule(bridge_db->ingress_region.region_id, bridge, vport.log_port, 0xFFFFFFFF, vport.vlan, bridge.int_vlan,
               vport.ingress_offset->offset);
}

void write_egress_rule(const bridge_db_bridge_t &bridge, bridge_db_virtual_port_t &vport)
{
    const Trace trace;
    if (vport.egress_offset == nullptr)
        vport.egress_offset = take(bridge_db->egress_region.offset_pool);
    write_rule(bridge_db->egress_region.region_id, bridge, 0, 0, bridge.int_vlan, vport.vlan,
               vport.egress_offset->offset);
}

void bind(std::uint32_t log_port, std::uint32_t acl_id, std::uint32_t direction)
{
    const Trace trace;
    ky_acl_bind_params_t binding = {KY_ACCESS_CMD_BIND, acl_id, direction, log_port};
    accept(acl_bind_port(&binding));
}

void unbind(std::uint32_t log_port, std::uint32_t acl_id, std::uint32_t direction)
{
    const Trace trace;
    ky_acl_bind_params_t binding = {KY_ACCESS_CMD_GET, 0, direction, log_port};
    accept(acl_bind_port_get(&binding));
    require(binding.acl_id == acl_id);
    binding.cmd = KY_ACCESS_CMD_UNBIND;
    accept(acl_unbind_port(&binding));
}

// ---- The steps of an attach, and of a detach --------------------------------------------------------------------

bridge_db_virtual_port_t *take_virtual_port(bridge_db_bridge_t &bridge, std::uint32_t log_port, std::uint16_t vlan,
                                            std::uint32_t egress_mode)
{
    const Trace trace;
    bridge_db_virtual_port_t *const vport = take(bridge_db->virtual_port_pool);
    vport->bridge_id = bridge.bridge_id;
    vport->log_port = log_port;
    vport->vlan = vlan;
    vport->egress_mode = egress_mode;
    vport->ingress_offset = nullptr;
    vport->egress_offset = nullptr;
    cl_qmap_insert(&bridge.virtual_port_map.map, log_port, &vport->bridge_map_item);
    return vport;
}

void use_egress_rule(bridge_db_bridge_t &bridge, bridge_db_virtual_port_t &vport)
{
    const Trace trace;
    if (bridge.egress_rule_ref_cnt++ != 0) {
        vport.egress_offset = bridge.egress_offset;
        return;
    }
    write_egress_rule(bridge, vport);
    bridge.egress_offset = vport.egress_offset;
}

void use_egress_binding(bridge_db_log_port_t &port)
{
    const Trace trace;
    if (port.eacl_bound_cnt++ != 0)
        return;
    bind(port.log_port, bridge_db->egress_region.acl_id, KY_ACL_DIRECTION_EGRESS);
    port.eacl_region = &bridge_db->egress_region;
}

void use_egress_side(bridge_db_bridge_t &bridge, bridge_db_virtual_port_t &vport)
{
    const Trace trace;
    bridge_db_log_port_t *const port = find_port(vport.log_port);
    use_egress_rule(bridge, vport);
    use_egress_binding(*port);
}

bridge_db_log_port_t *link_to_port(bridge_db_virtual_port_t &vport)
{
    const Trace trace;
    bridge_db_log_port_t *const port = find_port(vport.log_port);
    cl_qmap_insert(&port->back_ref_map.map, vport.vlan, &vport.back_ref_map_item);
    return port;
}

void join_vlans(const bridge_db_bridge_t &bridge, const bridge_db_virtual_port_t &vport, bridge_db_log_port_t &port)
{
    const Trace trace;
    ky_vlan_entry_t entries[2] = {{vport.vlan, 0, vport.egress_mode}, {bridge.int_vlan, 0, vport.egress_mode}};
    const bool is_joined_by_own =
        bridge.int_vlan == vport.vlan ||
        cl_qmap_get(&port.back_ref_map.map, bridge.int_vlan) != cl_qmap_end(&port.back_ref_map.map);
    accept(vlan_port_multi_vlans_set(KY_ACCESS_CMD_ADD, port.log_port, is_joined_by_own ? 1 : 2, entries));
    ++port.vlan_ref_cnt[vport.vlan];
    ++port.vlan_ref_cnt[bridge.int_vlan];
}

void leave_vlans(const bridge_db_bridge_t &bridge, const bridge_db_virtual_port_t &vport, bridge_db_log_port_t &port)
{
    const Trace trace;
    ky_vlan_entry_t entries[2];
    std::uint32_t count = 0;
    if (port.vlan_ref_cnt[vport.vlan]-- == 1)
        entries[count++] = {vport.vlan, 0, vport.egress_mode};
    if (port.vlan_ref_cnt[bridge.int_vlan]-- == 1)
        entries[count++] = {bridge.int_vlan, 0, vport.egress_mode};
    if (count != 0)
        accept(vlan_port_multi_vlans_set(KY_ACCESS_CMD_DELETE, port.log_port, count, entries));
}

void drop_egress_binding(bridge_db_log_port_t &port)
{
    const Trace trace;
    if (--port.eacl_bound_cnt != 0)
        return;
    unbind(port.log_port, bridge_db->egress_region.acl_id, KY_ACL_DIRECTION_EGRESS);
    port.eacl_region = nullptr;
}

void drop_egress_rule(bridge_db_bridge_t &bridge, bridge_db_virtual_port_t &vport)
{
    const Trace trace;
    vport.egress_offset = nullptr;
    if (--bridge.egress_rule_ref_cnt != 0)
        return;
    delete_rule(bridge_db->egress_region.region_id, bridge.egress_offset->offset);
    put(bridge_db->egress_region.offset_pool.pool, &bridge.egress_offset->pool_item);
    bridge.egress_offset = nullptr;
}

void drop_egress_side(bridge_db_bridge_t &bridge, bridge_db_virtual_port_t &vport)
{
    const Trace trace;
    bridge_db_log_port_t *const port = find_port(vport.log_port);
    drop_egress_binding(*port);
    drop_egress_rule(bridge, vport);
}

void delete_ingress_rule(bridge_db_virtual_port_t &vport)
{
    const Trace trace;
    delete_rule(bridge_db->ingress_region.region_id, vport.ingress_offset->offset);
    put(bridge_db->ingress_region.offset_pool.pool, &vport.ingress_offset->pool_item);
    vport.ingress_offset = nullptr;
}

void unlink_from_port(const bridge_db_virtual_port_t &vport, bridge_db_log_port_t &port)
{
    const Trace trace;
    require(cl_qmap_remove(&port.back_ref_map.map, vport.vlan) != cl_qmap_end(&port.back_ref_map.map));
}

void put_virtual_port(bridge_db_bridge_t &bridge, bridge_db_virtual_port_t &vport)
{
    const Trace trace;
    require(cl_qmap_remove(&bridge.virtual_port_map.map, vport.log_port) != cl_qmap_end(&bridge.virtual_port_map.map));
    vport.bridge_id = 0;
    vport.log_port = 0;
    vport.vlan = 0;
    vport.egress_mode = 0;
    vport.ingress_offset = nullptr;
    vport.egress_offset = nullptr;
    put(bridge_db->virtual_port_pool.pool, &vport.pool_item);
}

// ---- The steps of bridges and ports -----------------------------------------------------------------------------

void reset(bridge_db_bridge_t &bridge)
{
    bridge.int_vlan = 0;
    bridge.ref_cnt = 0;
    bridge.is_internal = 0;
    bridge.egress_rule_ref_cnt = 0;
    bridge.acl_bound[0] = 0;
    bridge.acl_bound[1] = 0;
    bridge.vlan_group = KY_VLAN_GROUP_NONE;
    bridge.egress_offset = nullptr;
}

bridge_db_bridge_t *take_bridge()
{
    const Trace trace;
    bridge_db_bridge_t *const bridge = take(bridge_db->bridge_pool);
    reset(*bridge);
    bridge->learning_mode = 0;
    cl_qmap_init(&bridge->virtual_port_map.map);
    cl_qmap_insert(&bridge_db->bridge_map.map, bridge->bridge_id, &bridge->map_item);
    return bridge;
}

void take_int_vlan(bridge_db_bridge_t &bridge)
{
    const Trace trace;
    bridge_db_int_vlan_t *const int_vlan = take(bridge_db->int_vlan_pool);
    int_vlan->bridge_id = bridge.bridge_id;
    cl_qmap_insert(&bridge_db->int_vlan_map.map, int_vlan->int_vlan_id, &int_vlan->map_item);
    bridge.int_vlan = int_vlan->int_vlan_id;
}

void check_empty(const bridge_db_bridge_t &bridge)
{
    const Trace trace;
    require(cl_qmap_count(&bridge.virtual_port_map.map) == 0);
    require(bridge.ref_cnt == 0);
    require(bridge.vlan_group == KY_VLAN_GROUP_NONE);
}

void put_int_vlan(const bridge_db_bridge_t &bridge)
{
    const Trace trace;
    cl_qmap_t *const map = &bridge_db->int_vlan_map.map;
    cl_map_item_t *const item = cl_qmap_remove(map, bridge.int_vlan);
    require(item != cl_qmap_end(map));
    auto *const int_vlan = record_of<bridge_db_int_vlan_t>(item, offsetof(bridge_db_int_vlan_t, map_item));
    int_vlan->bridge_id = 0;
    put(bridge_db->int_vlan_pool.pool, &int_vlan->pool_item);
}

void put_bridge(bridge_db_bridge_t &bridge)
{
    const Trace trace;
    cl_qmap_remove(&bridge_db->bridge_map.map, bridge.bridge_id);
    reset(bridge);
    put(bridge_db->bridge_pool.pool, &bridge.pool_item);
}

bridge_db_log_port_t *take_port(std::uint32_t log_port, std::uint8_t swid)
{
    const Trace trace;
    require(look_up_port(log_port) == nullptr);
    bridge_db_log_port_t *const port = take(bridge_db->log_port_pool);
    port->vlan_ref_cnt = static_cast<std::uint8_t *>(cl_malloc(BRIDGE_DB_VLAN_REF_CNT_SIZE));
    require(port->vlan_ref_cnt != nullptr);
    std::memset(port->vlan_ref_cnt, 0, BRIDGE_DB_VLAN_REF_CNT_SIZE);
    port->log_port = log_port;
    port->swid = swid;
    port->eacl_region = nullptr;
    port->eacl_bound_cnt = 0;
    cl_qmap_init(&port->back_ref_map.map);
    cl_qmap_insert(&bridge_db->log_port_map.map, log_port, &port->map_item);
    return port;
}

void put_port(bridge_db_log_port_t &port)
{
    const Trace trace;
    require(cl_qmap_remove(&bridge_db->log_port_map.map, port.log_port) != cl_qmap_end(&bridge_db->log_port_map.map));
    port.log_port = 0;
    port.swid = 0;
    port.eacl_bound_cnt = 0;
    port.eacl_region = nullptr;
    cl_free(port.vlan_ref_cnt);
    port.vlan_ref_cnt = nullptr;
    put(bridge_db->log_port_pool.pool, &port.pool_item);
}

bool is_homogenous()
{
    return bridge_db->multiple_vlan_bridge_mode == KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS;
}

bridge_db_bridge_t *validate_add(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan,
                                 std::uint32_t egress_mode, std::uint32_t is_internal)
{
    const Trace trace;
    bridge_db_bridge_t *const bridge = find_bridge(bridge_id, is_internal);
    const cl_qmap_t *const vports = &bridge->virtual_port_map.map;
    cl_map_item_t *const first = cl_qmap_head(vports);
    require(!is_homogenous() || first == cl_qmap_end(vports) || vport_of_bridge(first)->vlan == vlan);
    const bridge_db_log_port_t *const port = look_up_port(log_port);
    require(port == nullptr || cl_qmap_get(&port->back_ref_map.map, vlan) == cl_qmap_end(&port->back_ref_map.map));
    ask_port_module(log_port);
    check_range(vlan, egress_mode);
    return bridge;
}

bridge_db_bridge_t *validate_delete(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan,
                                    std::uint32_t egress_mode, std::uint32_t is_internal)
{
    const Trace trace;
    bridge_db_bridge_t *const bridge = find_bridge(bridge_id, is_internal);
    ask_port_module(log_port);
    check_range(vlan, egress_mode);
    return bridge;
}

bridge_db_virtual_port_t *find_virtual_port(const bridge_db_bridge_t &bridge, std::uint32_t log_port,
                                            std::uint16_t vlan)
{
    const Trace trace;
    const cl_qmap_t *const vports = &bridge.virtual_port_map.map;
    cl_map_item_t *const item = cl_qmap_get(vports, log_port);
    require(item != cl_qmap_end(vports));
    bridge_db_virtual_port_t *const vport = vport_of_bridge(item);
    require(vport->vlan == vlan);
    return vport;
}

// ---- The steps of queries ----------------------------------------------------------------------------------------

void list_all_int_vlans(std::uint16_t *vids, std::uint32_t *count)
{
    const Trace trace;
    const std::uint32_t capacity = *count;
    *count = 0;
    const cl_qmap_t *const map = &bridge_db->int_vlan_map.map;
    require(capacity != 0 && cl_qmap_count(map) != 0);
    std::uint32_t written = 0;
    for (cl_map_item_t *item = cl_qmap_head(map); item != cl_qmap_end(map) && written < capacity;
         item = cl_qmap_next(item))
        vids[written++] = record_of<bridge_db_int_vlan_t>(item, offsetof(bridge_db_int_vlan_t, map_item))->int_vlan_id;
    require(written == capacity || written == cl_qmap_count(map));
    *count = written;
}

void list_int_vlans_of_port(std::uint32_t log_port, std::uint16_t *vids, std::uint32_t *count)
{
    const Trace trace;
    const std::uint32_t capacity = *count;
    *count = 0;
    const cl_qmap_t *const vports = &find_port(log_port)->back_ref_map.map;
    require(cl_qmap_count(vports) != 0);
    std::uint32_t written = 0;
    for (cl_map_item_t *item = cl_qmap_head(vports); item != cl_qmap_end(vports) && written < capacity;
         item = cl_qmap_next(item))
        vids[written++] = find_bridge(vport_of_port(item)->bridge_id, 1)->int_vlan;
    *count = written;
}

const bridge_db_int_vlan_t *find_int_vlan(std::uint16_t int_vlan)
{
    const Trace trace;
    const cl_qmap_t *const map = &bridge_db->int_vlan_map.map;
    cl_map_item_t *const item = cl_qmap_get(map, int_vlan);
    require(item != cl_qmap_end(map));
    return record_of<bridge_db_int_vlan_t>(item, offsetof(bridge_db_int_vlan_t, map_item));
}

} // namespace

void create_bridge(std::uint16_t *bridge_id, std::uint32_t is_internal)
{
    const Trace trace;
    require(bridge_db != nullptr);
    require(bridge_id != nullptr);
    bridge_db_bridge_t *const bridge = take_bridge();
    bridge->is_internal = is_internal;
    take_int_vlan(*bridge);
    refresh_all_rstp();
    *bridge_id = bridge->bridge_id;
}

void destroy_bridge(const std::uint16_t *bridge_id, std::uint32_t is_internal)
{
    const Trace trace;
    require(bridge_db != nullptr);
    require(bridge_id != nullptr);
    bridge_db_bridge_t *const bridge = find_bridge(*bridge_id, is_internal);
    check_empty(*bridge);
    put_int_vlan(*bridge);
    put_bridge(*bridge);
    refresh_all_rstp();
}

void add(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan, std::uint32_t egress_mode,
         std::uint32_t is_internal)
{
    const Trace trace;
    require(bridge_db != nullptr);
    bridge_db_bridge_t *const bridge = validate_add(bridge_id, log_port, vlan, egress_mode, is_internal);
    bridge_db_virtual_port_t *const vport = take_virtual_port(*bridge, log_port, vlan, egress_mode);
    write_ingress_rule(*bridge, *vport);
    use_egress_side(*bridge, *vport);
    bridge_db_log_port_t *const port = link_to_port(*vport);
    refresh_rstp(*port);
    join_vlans(*bridge, *vport, *port);
}

void remove(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan, std::uint32_t egress_mode,
            std::uint32_t is_internal)
{
    const Trace trace;
    require(bridge_db != nullptr);
    bridge_db_bridge_t *const bridge = validate_delete(bridge_id, log_port, vlan, egress_mode, is_internal);
    bridge_db_virtual_port_t *const vport = find_virtual_port(*bridge, log_port, vlan);
    bridge_db_log_port_t *const port = find_port(log_port);
    leave_vlans(*bridge, *vport, *port);
    drop_egress_side(*bridge, *vport);
    delete_ingress_rule(*vport);
    unlink_from_port(*vport, *port);
    refresh_rstp(*port);
    put_virtual_port(*bridge, *vport);
}

ky_status_t bridge_port_set(ky_access_cmd_t, std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan,
                            std::uint32_t egress_mode, std::uint32_t is_internal)
{
    remove(bridge_id, log_port, vlan, egress_mode, is_internal);
    return 0;
}

void announce(std::uint32_t log_port, std::uint8_t swid)
{
    const Trace trace;
    require(bridge_db != nullptr && bridge_db->sdk_mode == KY_BRIDGE_SDK_MODE_802_1D);
    require(swid_validation_func_ptr != nullptr);
    accept(swid_validation_func_ptr(swid));
    take_port(log_port, swid);
    bind(log_port, bridge_db->ingress_region.acl_id, KY_ACL_DIRECTION_INGRESS);
}

void clear_and_release(std::uint32_t log_port)
{
    const Trace trace;
    require(bridge_db != nullptr && bridge_db->sdk_mode == KY_BRIDGE_SDK_MODE_802_1D);
    bridge_db_log_port_t *const port = find_port(log_port);
    const cl_qmap_t *const vports = &port->back_ref_map.map;
    for (cl_map_item_t *item = cl_qmap_head(vports); item != cl_qmap_end(vports);) {
        const bridge_db_virtual_port_t *const vport = vport_of_port(item);
        accept(::bridge_port_set(KY_ACCESS_CMD_DELETE, vport->bridge_id, log_port, vport->vlan, vport->egress_mode, 1));
        require(cl_qmap_head(vports) != item); // else it would go on for ever
        item = cl_qmap_head(vports);
    }
    require(port->eacl_region == nullptr);
    unbind(log_port, bridge_db->ingress_region.acl_id, KY_ACL_DIRECTION_INGRESS);
    put_port(*port);
}

void set_learning_mode(std::uint16_t bridge_id, std::uint32_t learning_mode, std::uint32_t is_internal)
{
    const Trace trace;
    require(bridge_db != nullptr);
    bridge_db_bridge_t *const bridge = find_bridge(bridge_id, is_internal);
    if (bridge->learning_mode == learning_mode)
        return;
    bridge->learning_mode = learning_mode;
    const cl_qmap_t *const vports = &bridge->virtual_port_map.map;
    for (cl_map_item_t *item = cl_qmap_head(vports); item != cl_qmap_end(vports); item = cl_qmap_next(item)) {
        write_ingress_rule(*bridge, *vport_of_bridge(item));
        if (item == cl_qmap_head(vports))
            write_egress_rule(*bridge, *vport_of_bridge(item));
    }
}

void get_learning_mode(std::uint16_t bridge_id, std::uint32_t *learning_mode, std::uint32_t is_internal)
{
    const Trace trace;
    require(learning_mode != nullptr);
    require(bridge_db != nullptr);
    *learning_mode = find_bridge(bridge_id, is_internal)->learning_mode;
}

void list_ports(std::uint16_t bridge_id, ky_bridge_port_t *list, std::uint32_t *count, std::uint32_t is_internal)
{
    const Trace trace;
    require(bridge_db != nullptr);
    const cl_qmap_t *const vports = &find_bridge(bridge_id, is_internal)->virtual_port_map.map;
    require(count != nullptr);
    const std::uint32_t capacity = *count;
    require(capacity != 0 && list != nullptr);
    std::uint32_t written = 0;
    for (cl_map_item_t *item = cl_qmap_head(vports); item != cl_qmap_end(vports) && written < capacity;
         item = cl_qmap_next(item)) {
        const bridge_db_virtual_port_t *const vport = vport_of_bridge(item);
        list[written].log_port = vport->log_port;
        list[written].vlan = vport->vlan;
        list[written].egress_mode = vport->egress_mode;
        ++written;
    }
    *count = written;
}

void int_vlan_of_bridge(std::uint16_t bridge_id, std::uint16_t *vid, std::uint32_t is_internal)
{
    const Trace trace;
    require(bridge_db != nullptr);
    require(vid != nullptr);
    *vid = find_bridge(bridge_id, is_internal)->int_vlan;
}

void list_int_vlans(std::uint32_t log_port, std::uint16_t *vids, std::uint32_t *count)
{
    const Trace trace;
    require(count != nullptr);
    require(vids != nullptr);
    require(bridge_db != nullptr);
    if (log_port == 0)
        list_all_int_vlans(vids, count);
    else
        list_int_vlans_of_port(log_port, vids, count);
}

void bridge_of_int_vlan(std::uint16_t int_vlan, std::uint16_t *bridge_id)
{
    const Trace trace;
    require(bridge_db != nullptr);
    require(bridge_id != nullptr);
    *bridge_id = find_int_vlan(int_vlan)->bridge_id;
}

ky_status_t is_member(std::uint32_t log_port)
{
    const Trace trace;
    require(bridge_db != nullptr && bridge_db->sdk_mode != KY_BRIDGE_SDK_MODE_802_1Q);
    const bool has_virtual_ports = cl_qmap_count(&find_port(log_port)->back_ref_map.map) != 0;
    return has_virtual_ports ? KY_STATUS_SUCCESS : KY_STATUS_ENTRY_NOT_FOUND;
}

void vlan_group_of_bridge(std::uint16_t bridge_id, std::uint16_t *vlan_group)
{
    const Trace trace;
    require(bridge_db != nullptr);
    require(vlan_group != nullptr);
    const bridge_db_bridge_t *const bridge = find_bridge(bridge_id, 0);
    require(bridge->vlan_group != KY_VLAN_GROUP_NONE);
    *vlan_group = bridge->vlan_group;
}

void acls_of_port(std::uint32_t log_port, std::uint32_t *ingress_acl, std::uint32_t *egress_acl)
{
    const Trace trace;
    require(bridge_db != nullptr && bridge_db->sdk_mode != KY_BRIDGE_SDK_MODE_802_1Q);
    const bridge_db_log_port_t *const port = find_port(log_port);
    if (ingress_acl != nullptr)
        *ingress_acl = bridge_db->ingress_region.acl_id;
    if (egress_acl == nullptr)
        return;
    require(is_homogenous());
    *egress_acl = port->eacl_bound_cnt != 0 ? bridge_db->egress_region.acl_id : std::uint32_t{KY_ACL_ID_NONE};
}

} // namespace bench::floor
