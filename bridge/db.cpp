#include "db.h"

#include <cstring>

#include "log.h"

bridge_db_t *bridge_db = nullptr;

namespace {

// The next identifiers that the pool initialisers hand to their records, counting down.
uint16_t bridge_countdown;
uint32_t int_vlan_countdown;

/// What every pool initialiser ends with: a record is its own pool item.
cl_status_t use_record_as_pool_item(void *object, cl_pool_item_t **pool_item)
{
    *pool_item = static_cast<cl_pool_item_t *>(object);
    return CL_SUCCESS;
}

} // namespace

bool kybridge::database_is_missing(const char *file, int line, const char *function)
{
    if (bridge_db != nullptr)
        return false;
    LOG_LINE(KY_LOG_DEBUG, debug_verbosity, "%s[%d]- %s: bridge_db is not initiatesd.\n", file, line, function);
    return true;
}

// ---- Build and teardown ----------------------------------------------------------------------------

cl_status_t __bridge_db_bridge_pool_init(void *object, void *, cl_pool_item_t **pool_item)
{
    static_cast<bridge_db_bridge_t *>(object)->bridge_id = bridge_countdown--;
    return use_record_as_pool_item(object, pool_item);
}

cl_status_t __bridge_db_bridge_virtual_port_pool_init(void *object, void *, cl_pool_item_t **pool_item)
{
    return use_record_as_pool_item(object, pool_item);
}

cl_status_t __bridge_db_bridge_internal_vlan_pool_init(void *object, void *, cl_pool_item_t **pool_item)
{
    static_cast<bridge_db_int_vlan_t *>(object)->int_vlan_id = static_cast<uint16_t>(int_vlan_countdown--);
    return use_record_as_pool_item(object, pool_item);
}

cl_status_t __bridge_db_bridge_log_port_pool_init(void *object, void *, cl_pool_item_t **pool_item)
{
    return use_record_as_pool_item(object, pool_item);
}

ky_status_t __bridge_db_init()
{
    const kybridge::FunctionTrace trace;

    if (bridge_db->max_bridge_num < 1 || bridge_db->max_bridge_num > rm_resource_global.max_bridges) {
        LOG_ERROR("bridge_init_param->sdk_mode_params.mode_1D.max_bridge_num (%d) exceeds range [1-%d].\n",
                  static_cast<int>(bridge_db->max_bridge_num), static_cast<int>(rm_resource_global.max_bridges));
        return KY_STATUS_PARAM_EXCEEDS_RANGE;
    }
    if (bridge_db->max_virtual_ports_num < 1 || bridge_db->max_virtual_ports_num > KY_VIRTUAL_PORTS_MAX) {
        LOG_ERROR("bridge_init_param->sdk_mode_params.mode_1D.max_virtual_ports_num (%d) exceeds range [1-%d].\n",
                  static_cast<int>(bridge_db->max_virtual_ports_num), KY_VIRTUAL_PORTS_MAX);
        return KY_STATUS_PARAM_EXCEEDS_RANGE;
    }
    if (bridge_db->multiple_vlan_bridge_mode > KY_BRIDGE_MULTIPLE_VLAN_MODE_NON_HOMOGENOUS) {
        LOG_ERROR("bridge_init_param->sdk_mode_params.mode_1D.multiple_vlan_bridge_mode (%d) exceeds range [0-%d].\n",
                  static_cast<int>(bridge_db->multiple_vlan_bridge_mode), KY_BRIDGE_MULTIPLE_VLAN_MODE_NON_HOMOGENOUS);
        return KY_STATUS_PARAM_ERROR;
    }

    // A pool that cannot be built stays unbuilt, and allocations from it fail.
    bridge_countdown = static_cast<uint16_t>(bridge_db->max_bridge_num);
    bridge_db->bridge_pool.build(bridge_db->max_bridge_num, __bridge_db_bridge_pool_init);
    bridge_db->bridge_map.init();

    bridge_db->virtual_port_pool.build(bridge_db->max_virtual_ports_num, __bridge_db_bridge_virtual_port_pool_init);

    int_vlan_countdown = KY_VLAN_ID_MAX;
    bridge_db->int_vlan_pool.build(KY_VLAN_ID_MAX, __bridge_db_bridge_internal_vlan_pool_init);
    bridge_db->int_vlan_map.init();

    bridge_db->log_port_pool.build(rm_resource_global.max_log_ports, __bridge_db_bridge_log_port_pool_init);
    bridge_db->log_port_map.init();
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_db_deinit()
{
    const kybridge::FunctionTrace trace;

    bridge_db->bridge_pool.destroy();
    bridge_db->virtual_port_pool.destroy();
    bridge_db->int_vlan_pool.destroy();
    bridge_db->log_port_pool.destroy();
    return KY_STATUS_SUCCESS;
}

// ---- Bridges ---------------------------------------------------------------------------------------

ky_status_t __bridge_db_alloc_bridge(uint32_t is_internal, bridge_db_bridge_t **bridge)
{
    const kybridge::FunctionTrace trace;

    bridge_db_bridge_t *const record = bridge_db->bridge_pool.take();
    if (record == nullptr) {
        LOG_ERROR("Could not find free bridge entry in bridge_db.\n");
        return KY_STATUS_NO_RESOURCES;
    }
    record->int_vlan = 0;
    record->ref_cnt = 0;
    record->is_internal = is_internal;
    record->egress_rule_ref_cnt = 0;
    record->acl_bound[KY_ACL_DIRECTION_INGRESS] = 0;
    record->acl_bound[KY_ACL_DIRECTION_EGRESS] = 0;
    record->vlan_group = KY_VLAN_GROUP_NONE;
    record->egress_offset = nullptr;
    record->virtual_port_map.init();
    record->learning_mode = KY_FDB_LEARN_MODE_DONT_LEARN;
    bridge_db->bridge_map.insert(record->bridge_id, record);
    *bridge = record;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_db_get_bridge(uint16_t bridge_id, bridge_db_bridge_t **bridge, uint32_t is_internal)
{
    const kybridge::FunctionTrace trace;

    bridge_db_bridge_t *const record = bridge_db->bridge_map.find(bridge_id);
    if (record == nullptr || (record->is_internal != 0 && is_internal == 0))
        return KY_STATUS_ENTRY_NOT_FOUND;
    *bridge = record;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_db_free_bridge(bridge_db_bridge_t *bridge)
{
    const kybridge::FunctionTrace trace;

    bridge_db->bridge_map.remove(bridge->bridge_id);
    bridge->int_vlan = 0;
    bridge->ref_cnt = 0;
    bridge->is_internal = 0;
    bridge->egress_rule_ref_cnt = 0;
    bridge->acl_bound[KY_ACL_DIRECTION_INGRESS] = 0;
    bridge->acl_bound[KY_ACL_DIRECTION_EGRESS] = 0;
    bridge->vlan_group = KY_VLAN_GROUP_NONE;
    bridge->egress_offset = nullptr;
    bridge_db->bridge_pool.put(bridge);
    return KY_STATUS_SUCCESS;
}

// ---- Internal VLANs --------------------------------------------------------------------------------

ky_status_t __bridge_db_alloc_int_vlan(bridge_db_bridge_t *bridge)
{
    const kybridge::FunctionTrace trace;

    bridge_db_int_vlan_t *const record = bridge_db->int_vlan_pool.take();
    if (record == nullptr) {
        LOG_ERROR("Could not find free internal vlan entry in bridge_db.\n");
        return KY_STATUS_NO_RESOURCES;
    }
    record->bridge_id = bridge->bridge_id;
    bridge_db->int_vlan_map.insert(record->int_vlan_id, record);
    bridge->int_vlan = record->int_vlan_id;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_db_get_int_vlan(uint16_t int_vlan_id, bridge_db_int_vlan_t **int_vlan)
{
    const kybridge::FunctionTrace trace;

    bridge_db_int_vlan_t *const record = bridge_db->int_vlan_map.find(int_vlan_id);
    if (record == nullptr)
        return KY_STATUS_ENTRY_NOT_FOUND;
    *int_vlan = record;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_db_free_int_vlan(const uint16_t *int_vlan_id)
{
    const kybridge::FunctionTrace trace;

    bridge_db_int_vlan_t *const record = bridge_db->int_vlan_map.remove(*int_vlan_id);
    if (record == nullptr)
        return KY_STATUS_ENTRY_NOT_FOUND;
    record->bridge_id = 0;
    bridge_db->int_vlan_pool.put(record);
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_db_get_int_vlan_list(uint16_t *vid, uint32_t *vid_num)
{
    const kybridge::FunctionTrace trace;
    const auto &int_vlan_map = bridge_db->int_vlan_map;

    const uint32_t capacity = *vid_num;
    *vid_num = 0;
    if (capacity == 0 || int_vlan_map.is_empty())
        return KY_STATUS_SUCCESS;

    uint32_t written = 0;
    for (auto *int_vlan = int_vlan_map.first(); int_vlan != nullptr && written < capacity;
         int_vlan = int_vlan_map.next(int_vlan))
        vid[written++] = int_vlan->int_vlan_id;

    if (written < capacity && written != int_vlan_map.count()) {
        LOG_DEBUG("Unable to get the list of int_vlans.\n");
        return KY_STATUS_ERROR;
    }
    *vid_num = written;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_db_get_port_int_vlan_list(uint32_t log_port, uint16_t *vid, uint32_t *vid_num)
{
    const kybridge::FunctionTrace trace;

    const uint32_t capacity = *vid_num;
    *vid_num = 0;
    bridge_db_log_port_t *record;
    const ky_status_t status = __bridge_db_get_log_port(log_port, &record);
    if (status != KY_STATUS_SUCCESS) {
        LOG_DEBUG("__bridge_db_get_log_port failed to retrive info about port(0x%08X).\n", log_port);
        return status;
    }
    if (record->back_ref_map.is_empty()) {
        LOG_DEBUG("No bridge attached to port (0x%08X).\n", log_port);
        return KY_STATUS_SUCCESS;
    }

    uint32_t written = 0;
    for (auto *vport = record->back_ref_map.first(); vport != nullptr && written < capacity;
         vport = record->back_ref_map.next(vport)) {
        bridge_db_bridge_t *bridge;
        const ky_status_t bridge_status = __bridge_db_get_bridge(vport->bridge_id, &bridge, 1);
        if (bridge_status != KY_STATUS_SUCCESS) {
            LOG_ERROR("Could not find bridge_id(%d) in bridge_db.\n", vport->bridge_id);
            return bridge_status;
        }
        vid[written++] = bridge->int_vlan;
    }
    *vid_num = written;
    return KY_STATUS_SUCCESS;
}

// ---- Virtual ports ---------------------------------------------------------------------------------

ky_status_t __bridge_db_alloc_virtual_port(bridge_db_bridge_t *bridge, uint32_t log_port, uint16_t vlan,
                                           uint32_t egress_mode, bridge_db_virtual_port_t **vport)
{
    const kybridge::FunctionTrace trace;

    bridge_db_virtual_port_t *const record = bridge_db->virtual_port_pool.take();
    if (record == nullptr) {
        LOG_ERROR("Could not find free virtual port entry in bridge_db.\n");
        return KY_STATUS_NO_RESOURCES;
    }
    record->bridge_id = bridge->bridge_id;
    record->log_port = log_port;
    record->vlan = vlan;
    record->egress_mode = egress_mode;
    record->holds_eacl_binding = false;
    record->holds_vlans = false;
    record->ingress_offset = nullptr;
    record->egress_offset = nullptr;
    bridge->virtual_port_map.insert(log_port, record);
    *vport = record;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_db_get_virtual_port_from_bridge(bridge_db_bridge_t *bridge, uint32_t log_port, uint16_t vlan,
                                                     bridge_db_virtual_port_t **vport)
{
    const kybridge::FunctionTrace trace;

    bridge_db_virtual_port_t *const record = bridge->virtual_port_map.find(log_port);
    if (record == nullptr) {
        LOG_DEBUG("Could not find port(0x%x) in bridge(%d).\n", log_port, bridge->bridge_id);
        return KY_STATUS_ENTRY_NOT_FOUND;
    }
    if (record->vlan != vlan) {
        LOG_DEBUG("Could not find port(0x%x) vlan(%d) in bridge(%d).\n", log_port, vlan, bridge->bridge_id);
        return KY_STATUS_ENTRY_NOT_FOUND;
    }
    *vport = record;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_db_free_virtual_port(bridge_db_virtual_port_t *vport, bridge_db_bridge_t *bridge)
{
    const kybridge::FunctionTrace trace;

    if (bridge->virtual_port_map.remove(vport->log_port) == nullptr) {
        LOG_ERROR("Could not find port(0x%x) in bridge(%d).\n", vport->log_port, bridge->bridge_id);
        return KY_STATUS_ENTRY_NOT_FOUND;
    }
    vport->bridge_id = 0;
    vport->log_port = 0;
    vport->vlan = 0;
    vport->egress_mode = 0;
    vport->ingress_offset = nullptr;
    vport->egress_offset = nullptr;
    bridge_db->virtual_port_pool.put(vport);
    return KY_STATUS_SUCCESS;
}

// ---- Logical ports ---------------------------------------------------------------------------------

ky_status_t __bridge_db_alloc_log_port(uint32_t log_port, uint8_t swid, bridge_db_log_port_t **record)
{
    const kybridge::FunctionTrace trace;

    if (bridge_db->log_port_map.find(log_port) != nullptr)
        return KY_STATUS_ENTRY_ALREADY_EXISTS;

    bridge_db_log_port_t *const port = bridge_db->log_port_pool.take();
    if (port == nullptr) {
        LOG_ERROR("Could not find free log port entry in bridge_db.\n");
        return KY_STATUS_NO_RESOURCES;
    }
    port->vlan_ref_cnt = static_cast<uint8_t *>(cl_malloc(BRIDGE_DB_VLAN_REF_CNT_SIZE));
    if (port->vlan_ref_cnt == nullptr) {
        bridge_db->log_port_pool.put(port);
        return KY_STATUS_NO_MEMORY;
    }
    std::memset(port->vlan_ref_cnt, 0, BRIDGE_DB_VLAN_REF_CNT_SIZE);
    port->log_port = log_port;
    port->swid = swid;
    port->eacl_bound_cnt = 0;
    port->eacl_region = nullptr;
    port->back_ref_map.init();
    bridge_db->log_port_map.insert(log_port, port);
    *record = port;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_db_get_log_port(uint32_t log_port, bridge_db_log_port_t **record)
{
    const kybridge::FunctionTrace trace;

    bridge_db_log_port_t *const port = bridge_db->log_port_map.find(log_port);
    if (port == nullptr)
        return KY_STATUS_ENTRY_NOT_FOUND;
    *record = port;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_db_free_log_port(uint32_t log_port)
{
    const kybridge::FunctionTrace trace;

    bridge_db_log_port_t *const port = bridge_db->log_port_map.remove(log_port);
    if (port == nullptr)
        return KY_STATUS_ENTRY_NOT_FOUND;
    port->log_port = 0;
    port->swid = 0;
    port->eacl_bound_cnt = 0;
    port->eacl_region = nullptr;
    if (port->vlan_ref_cnt != nullptr)
        cl_free(port->vlan_ref_cnt);
    port->vlan_ref_cnt = nullptr;
    bridge_db->log_port_pool.put(port);
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_db_add_virtual_port_to_log_port_back_ref(bridge_db_virtual_port_t *vport,
                                                              bridge_db_log_port_t **record)
{
    const kybridge::FunctionTrace trace;

    const ky_status_t status = __bridge_db_get_log_port(vport->log_port, record);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_get_log_port failed when adding eACL.\n");
        return status;
    }
    (*record)->back_ref_map.insert(vport->vlan, vport);
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_db_remove_virtual_port_to_log_port_back_ref(const bridge_db_virtual_port_t *vport,
                                                                 bridge_db_log_port_t *record)
{
    const kybridge::FunctionTrace trace;

    if (record->back_ref_map.remove(vport->vlan) == nullptr) {
        LOG_ERROR("Failed to retreive v_port from log_port.\n");
        return KY_STATUS_PARAM_ERROR;
    }
    return KY_STATUS_SUCCESS;
}
