/// A bridge's VLAN group, to which users bind ACLs of their own, and the module's ACLs of a port.
#include "kybridge/ky_bridge.h"

#include <cstring>

#include "db.h"
#include "log.h"

namespace {

/// A VLAN group record with room for one VLAN ID, zeroed.
ky_acl_vlan_group_params_t *allocate_group_record()
{
    constexpr size_t size = sizeof(ky_acl_vlan_group_params_t) + sizeof(uint16_t);
    static_assert(size == 14, "VLAN group record with one VLAN ID");
    void *const record = cl_malloc(size);
    return record != nullptr ? static_cast<ky_acl_vlan_group_params_t *>(std::memset(record, 0, size)) : nullptr;
}

/// Writes the bridge's internal VLAN as the one entry of the record's list.
void list_int_vlan(ky_acl_vlan_group_params_t *group, const bridge_db_bridge_t &bridge)
{
    group->vlan_count = 1;
    *ky_acl_vlan_group_list(group) = bridge.int_vlan;
}

ky_status_t bind_bridge(bridge_db_bridge_t &bridge, uint32_t direction, ky_acl_vlan_group_params_t *group,
                        uint16_t *vlan_group)
{
    if (bridge.acl_bound[direction] != 0) {
        LOG_ERROR("Bridge (%d) is already bound with acl on direction %d\n", bridge.bridge_id,
                  static_cast<int>(direction));
        return KY_STATUS_RESOURCE_IN_USE;
    }
    bridge.acl_bound[direction] = 1;
    if (bridge.vlan_group != KY_VLAN_GROUP_NONE) { // the other direction's, or left by a refused unbind
        *vlan_group = bridge.vlan_group;
        return KY_STATUS_SUCCESS;
    }

    group->cmd = KY_ACCESS_CMD_CREATE;
    ky_status_t status = acl_vlan_group_set(group);
    if (status != KY_STATUS_SUCCESS) {
        bridge.acl_bound[direction] = 0;
        LOG_ERROR("acl_vlan_group_set cmd==CREATE failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    group->cmd = KY_ACCESS_CMD_ADD;
    list_int_vlan(group, bridge);
    status = acl_vlan_group_set(group);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("acl_vlan_group_set cmd==ADD failed (%s).\n", kybridge::status_text(status));
        bridge.acl_bound[direction] = 0;
        group->cmd = KY_ACCESS_CMD_DESTROY;
        acl_vlan_group_set(group);
        return status;
    }
    bridge.vlan_group = group->vlan_group;
    *vlan_group = group->vlan_group;
    return KY_STATUS_SUCCESS;
}

ky_status_t unbind_bridge(bridge_db_bridge_t &bridge, uint32_t direction, ky_acl_vlan_group_params_t *group)
{
    if (bridge.acl_bound[direction] == 0) {
        LOG_ERROR("Bridge (%d) is not bound with acl on direction %d\n", bridge.bridge_id, static_cast<int>(direction));
        return KY_STATUS_ENTRY_NOT_FOUND;
    }
    if (bridge.vlan_group == KY_VLAN_GROUP_NONE) {
        LOG_ERROR("Bridge (%d) is not bound.\n", bridge.bridge_id);
        return KY_STATUS_ENTRY_NOT_FOUND;
    }
    bridge.acl_bound[direction] = 0;
    if (bridge.acl_bound[KY_ACL_DIRECTION_INGRESS] != 0 || bridge.acl_bound[KY_ACL_DIRECTION_EGRESS] != 0)
        return KY_STATUS_SUCCESS;

    group->cmd = KY_ACCESS_CMD_DELETE;
    group->vlan_group = bridge.vlan_group;
    list_int_vlan(group, bridge);
    ky_status_t status = acl_vlan_group_set(group);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("acl_vlan_group_set cmd==DELETE failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    group->cmd = KY_ACCESS_CMD_DESTROY;
    status = acl_vlan_group_set(group);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("acl_vlan_group_set cmd==DESTROY failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    bridge.vlan_group = KY_VLAN_GROUP_NONE;
    return KY_STATUS_SUCCESS;
}

/// ky_bridge_int_vlan_group_set once its record is there; the caller frees it.
ky_status_t set_vlan_group(ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t direction,
                           ky_acl_vlan_group_params_t *group, uint16_t *vlan_group)
{
    bridge_db_bridge_t *bridge;
    const ky_status_t status = __bridge_db_get_bridge(bridge_id, &bridge, 0);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_get_bridge failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    switch (cmd) {
    case KY_ACCESS_CMD_BIND:
        return bind_bridge(*bridge, direction, group, vlan_group);
    case KY_ACCESS_CMD_UNBIND:
        return unbind_bridge(*bridge, direction, group);
    default:
        LOG_ERROR("Wrong cmd in bridge_int_vlan_group_set: (%d)\n", static_cast<int>(cmd));
        return KY_STATUS_CMD_ERROR;
    }
}

} // namespace

ky_status_t ky_bridge_int_vlan_group_set(ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t direction,
                                         uint16_t *vlan_group)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    if (cmd == KY_ACCESS_CMD_BIND && vlan_group == nullptr)
        return KY_STATUS_PARAM_NULL;
    if (direction > KY_ACL_DIRECTION_EGRESS)
        return KY_STATUS_PARAM_EXCEEDS_RANGE;

    ky_acl_vlan_group_params_t *const group = allocate_group_record();
    if (group == nullptr)
        return KY_STATUS_NO_RESOURCES;
    const ky_status_t status = set_vlan_group(cmd, bridge_id, direction, group, vlan_group);
    cl_free(group);
    return status;
}

ky_status_t ky_bridge_int_vlan_group_get(uint16_t bridge_id, uint16_t *vlan_group)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    if (vlan_group == nullptr) {
        LOG_ERROR("vlan_group parameter is NULL.\n");
        return KY_STATUS_PARAM_ERROR;
    }
    bridge_db_bridge_t *bridge;
    const ky_status_t status = __bridge_db_get_bridge(bridge_id, &bridge, 0);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_get_bridge failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    if (bridge->vlan_group == KY_VLAN_GROUP_NONE) {
        LOG_ERROR("Bridge (%d) is not bound.\n", bridge_id);
        return KY_STATUS_ENTRY_NOT_FOUND;
    }
    *vlan_group = bridge->vlan_group;
    return KY_STATUS_SUCCESS;
}

ky_status_t ky_bridge_port_acl_binding_get(uint32_t log_port, uint32_t *ingress_acl, uint32_t *egress_acl)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    if (bridge_db->sdk_mode == KY_BRIDGE_SDK_MODE_802_1Q)
        return KY_STATUS_UNSUPPORTED;
    bridge_db_log_port_t *port;
    if (__bridge_db_get_log_port(log_port, &port) != KY_STATUS_SUCCESS) {
        LOG_DEBUG("__bridge_db_get_log_port failed when retreiving bound ACL's. port(0x%08X).\n", log_port);
        return KY_STATUS_ENTRY_NOT_FOUND;
    }
    if (ingress_acl != nullptr)
        *ingress_acl = bridge_db->ingress_region.acl_id;
    if (egress_acl == nullptr)
        return KY_STATUS_SUCCESS;

    if (port->eacl_bound_cnt == 0)
        *egress_acl = KY_ACL_ID_NONE;
    else if (bridge_db->multiple_vlan_bridge_mode == KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS)
        *egress_acl = bridge_db->egress_region.acl_id;
    else
        *egress_acl = port->eacl_region->acl_id;
    return KY_STATUS_SUCCESS;
}
