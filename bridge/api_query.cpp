/// Queries: they read the database only, and write their answers only where their texts say so.
#include "kybridge/ky_bridge.h"

#include "db.h"
#include "log.h"

ky_status_t ky_bridge_port_get(uint16_t bridge_id, ky_bridge_port_t *bridge_port_list_p, uint32_t *bridge_port_cnt_p,
                               uint32_t is_internal)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    bridge_db_bridge_t *bridge;
    const ky_status_t status = __bridge_db_get_bridge(bridge_id, &bridge, is_internal);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_get_bridge failed (%s), bridge_id (%u).\n", kybridge::status_text(status), bridge_id);
        return status;
    }
    if (bridge_port_cnt_p == nullptr) {
        LOG_ERROR("bridge_port_cnt_p parameter is NULL.\n");
        return KY_STATUS_PARAM_ERROR;
    }
    const auto &virtual_port_map = bridge->virtual_port_map;
    const uint32_t capacity = *bridge_port_cnt_p;
    if (capacity == 0 || bridge_port_list_p == nullptr) {
        *bridge_port_cnt_p = static_cast<uint32_t>(virtual_port_map.count());
        return KY_STATUS_SUCCESS;
    }
    uint32_t written = 0;
    for (auto *vport = virtual_port_map.first(); vport != nullptr && written < capacity;
         vport = virtual_port_map.next(vport)) {
        ky_bridge_port_t &entry = bridge_port_list_p[written++];
        entry.log_port = vport->log_port;
        entry.vlan = vport->vlan;
        entry.egress_mode = vport->egress_mode;
    }
    *bridge_port_cnt_p = written;
    return KY_STATUS_SUCCESS;
}

ky_status_t ky_bridge_int_vlan_id_get(uint16_t bridge_id, uint16_t *vid, uint32_t is_internal)
{
    const kybridge::FunctionTrace trace;

    if (bridge_db == nullptr) {
        LOG_DEBUG("bridge_db is not initialized.\n");
        return KY_STATUS_SUCCESS;
    }
    if (vid == nullptr) {
        LOG_DEBUG("Vid parameter is NULL.\n");
        return KY_STATUS_PARAM_ERROR;
    }
    bridge_db_bridge_t *bridge;
    const ky_status_t status = __bridge_db_get_bridge(bridge_id, &bridge, is_internal);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_get_bridge failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    *vid = bridge->int_vlan;
    return KY_STATUS_SUCCESS;
}

ky_status_t ky_bridge_int_vlan_list_get(uint32_t log_port, uint16_t *vid, uint32_t *vid_num)
{
    const kybridge::FunctionTrace trace;

    if (vid_num == nullptr) {
        LOG_ERROR("vid_num is NULL\n");
        return KY_STATUS_PARAM_NULL;
    }
    if (vid == nullptr) {
        LOG_ERROR("vid is NULL\n");
        return KY_STATUS_PARAM_NULL;
    }
    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    const ky_status_t status = log_port == 0 ? __bridge_db_get_int_vlan_list(vid, vid_num)
                                             : __bridge_db_get_port_int_vlan_list(log_port, vid, vid_num);
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("__bridge_db_get_int_vlan_list failed (%s).\n", kybridge::status_text(status));
    return status;
}

ky_status_t ky_bridge_int_vlan_bridge_id_get(uint16_t int_vlan, uint16_t *bridge_id)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    if (bridge_id == nullptr) {
        LOG_ERROR("bridge_id parameter is NULL.\n");
        return KY_STATUS_PARAM_ERROR;
    }
    bridge_db_int_vlan_t *record;
    const ky_status_t status = __bridge_db_get_int_vlan(int_vlan, &record);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_get_bridge failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    *bridge_id = record->bridge_id;
    return KY_STATUS_SUCCESS;
}

ky_status_t ky_bridge_log_port_member_state(uint32_t /*arg*/, uint32_t log_port)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    if (bridge_db->sdk_mode == KY_BRIDGE_SDK_MODE_802_1Q)
        return KY_STATUS_ENTRY_NOT_FOUND;
    bridge_db_log_port_t *port;
    const ky_status_t status = __bridge_db_get_log_port(log_port, &port);
    if (status != KY_STATUS_SUCCESS) {
        LOG_DEBUG("Could not find log_port(%d) in bridge_db.\n", static_cast<int>(log_port));
        return KY_STATUS_ENTRY_NOT_FOUND;
    }
    return port->back_ref_map.is_empty() ? KY_STATUS_ENTRY_NOT_FOUND : KY_STATUS_SUCCESS;
}
