/// Bridges: create, destroy, and the references that other SDK modules hold on them.
#include "api.h"

#include "log.h"
#include "vlan.h"

namespace {

ky_status_t create_bridge(uint16_t *bridge_id_p, uint32_t is_internal)
{
    bridge_db_bridge_t *bridge;
    ky_status_t status = __bridge_db_alloc_bridge(is_internal, &bridge);
    if (status != KY_STATUS_SUCCESS)
        return status;
    status = __bridge_db_alloc_int_vlan(bridge);
    if (status != KY_STATUS_SUCCESS) {
        __bridge_db_free_bridge(bridge);
        return status;
    }
    status = __bridge_update_rstp_state();
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_add_to_rstp_state failed (%s).\n", kybridge::status_text(status));
        __bridge_db_free_int_vlan(&bridge->int_vlan);
        __bridge_db_free_bridge(bridge);
        return status;
    }
    *bridge_id_p = bridge->bridge_id;
    return KY_STATUS_SUCCESS;
}

ky_status_t destroy_bridge(uint16_t bridge_id, uint32_t is_internal)
{
    bridge_db_bridge_t *bridge;
    ky_status_t status = __bridge_db_get_bridge(bridge_id, &bridge, is_internal);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_get_bridge failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    status = __bridge_verify_empty_bridge(bridge);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_verify_empty_bridge failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    status = __bridge_db_free_int_vlan(&bridge->int_vlan);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_free_int_vlan failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    status = __bridge_db_free_bridge(bridge);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_free_bridge failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    status = __bridge_update_rstp_state();
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("__bridge_remove_from_rstp_state failed (%s).\n", kybridge::status_text(status));
    return status;
}

/// Finds a bridge to count a reference on. @return 0 or KY_STATUS_ENTRY_NOT_FOUND, logged
ky_status_t find_referenced_bridge(uint16_t bridge_id, bridge_db_bridge_t **bridge)
{
    const ky_status_t status = __bridge_db_get_bridge(bridge_id, bridge, 1);
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("__bridge_db_get_bridge failed (%s).\n", kybridge::status_text(status));
    return status;
}

} // namespace

ky_status_t __bridge_verify_empty_bridge(const bridge_db_bridge_t *bridge)
{
    const kybridge::FunctionTrace trace;

    if (!bridge->virtual_port_map.is_empty()) {
        LOG_ERROR("bridge (%d) has virtual ports attached.\n", bridge->bridge_id);
        return KY_STATUS_RESOURCE_IN_USE;
    }
    if (bridge->ref_cnt != 0) {
        LOG_ERROR("bridge (%d) is in use.\n", bridge->bridge_id);
        return KY_STATUS_RESOURCE_IN_USE;
    }
    if (bridge->vlan_group != KY_VLAN_GROUP_NONE) {
        LOG_ERROR("bridge (%d) has vlan ACL attached.\n", bridge->bridge_id);
        return KY_STATUS_RESOURCE_IN_USE;
    }
    return KY_STATUS_SUCCESS;
}

ky_status_t ky_bridge_set(ky_access_cmd_t cmd, uint16_t *bridge_id_p, uint32_t is_internal)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    if (bridge_id_p == nullptr) {
        LOG_ERROR("bridge_id parameter is NULL.\n");
        return KY_STATUS_PARAM_ERROR;
    }
    switch (cmd) {
    case KY_ACCESS_CMD_CREATE:
        return create_bridge(bridge_id_p, is_internal);
    case KY_ACCESS_CMD_DESTROY:
        return destroy_bridge(*bridge_id_p, is_internal);
    default:
        LOG_ERROR("cmd unsupported (%s).\n", kybridge::command_text(cmd));
        return KY_STATUS_CMD_UNSUPPORTED;
    }
}

ky_status_t ky_bridge_ref_cnt_increase(uint16_t bridge_id)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    bridge_db_bridge_t *bridge;
    const ky_status_t status = find_referenced_bridge(bridge_id, &bridge);
    if (status != KY_STATUS_SUCCESS)
        return status;
    ++bridge->ref_cnt;
    return KY_STATUS_SUCCESS;
}

ky_status_t ky_bridge_ref_cnt_decrease(uint16_t bridge_id)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    bridge_db_bridge_t *bridge;
    const ky_status_t status = find_referenced_bridge(bridge_id, &bridge);
    if (status != KY_STATUS_SUCCESS)
        return status;
    if (bridge->ref_cnt == 0) {
        LOG_DEBUG("bridge %d) ref count is already zero.\n", bridge_id);
        return KY_STATUS_SUCCESS;
    }
    --bridge->ref_cnt;
    return KY_STATUS_SUCCESS;
}
