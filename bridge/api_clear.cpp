/// Clearing: taking a logical port out of every bridge, restoring it, and emptying the database.
#include "api.h"

#include "acl.h"
#include "log.h"

namespace {

/// Deletes every virtual port of a port, lowest VLAN first, through the SDK, which comes back into
/// ky_bridge_port_set for each. @return 0 or KY_STATUS_PARAM_ERROR, logged
ky_status_t delete_virtual_ports(const bridge_db_log_port_t &port)
{
    while (const bridge_db_virtual_port_t *const vport = port.back_ref_map.first()) {
        const ky_status_t status = bridge_port_set(KY_ACCESS_CMD_DELETE, vport->bridge_id, vport->log_port, vport->vlan,
                                                   vport->egress_mode, 1);
        // An SDK that answers 0 without deleting would keep the loop going for ever.
        if (status != KY_STATUS_SUCCESS || port.back_ref_map.first() == vport) {
            LOG_ERROR("Failed to retreive v_port from log_port.\n");
            return KY_STATUS_PARAM_ERROR;
        }
    }
    return KY_STATUS_SUCCESS;
}

/// Unbinds a port without virtual ports from the module's ACLs: from the egress one only where a refused undo
/// left it bound without a use. @return 0 or the status of the unbinding that was refused
ky_status_t unbind_port(bridge_db_log_port_t &port)
{
    if (port.eacl_region != nullptr) {
        const ky_status_t status =
            __bridge_unbind_port_from_acl(port.log_port, port.eacl_region->acl_id, KY_ACL_DIRECTION_EGRESS);
        if (status != KY_STATUS_SUCCESS)
            return status;
        port.eacl_region = nullptr;
    }
    return __bridge_unbind_port_from_acl(port.log_port, bridge_db->ingress_region.acl_id, KY_ACL_DIRECTION_INGRESS);
}

/// Frees a bridge with its internal VLAN and whatever virtual ports a refused clear left in it. The
/// hardware is not touched.
void drop_bridge(bridge_db_bridge_t *bridge)
{
    while (bridge_db_virtual_port_t *const vport = bridge->virtual_port_map.first()) {
        if (vport->ingress_offset != nullptr)
            bridge_db->ingress_region.offset_pool.put(vport->ingress_offset);
        bridge->virtual_port_map.remove(vport->log_port);
        bridge_db->virtual_port_pool.put(vport);
    }
    if (bridge->egress_rule_ref_cnt != 0)
        bridge_db->egress_region.offset_pool.put(bridge->egress_offset);
    __bridge_db_free_int_vlan(&bridge->int_vlan);
    __bridge_db_free_bridge(bridge);
}

} // namespace

ky_status_t kybridge::announce_log_port(uint32_t log_port, uint8_t swid)
{
    bridge_db_log_port_t *port;
    ky_status_t status = __bridge_db_alloc_log_port(log_port, swid, &port);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_alloc_log_port failed for port (0x%08X).\n", log_port);
        return status;
    }
    status = __bridge_bind_port_to_acl(log_port, bridge_db->ingress_region.acl_id, KY_ACL_DIRECTION_INGRESS);
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("__bridge_bind_port_to_acl failed for port (0x%08X).\n", log_port);
    return status;
}

ky_status_t ky_bridge_clear_port(uint32_t log_port, uint32_t release_log_port)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    if (bridge_db->sdk_mode == KY_BRIDGE_SDK_MODE_802_1Q)
        return KY_STATUS_SUCCESS;

    bridge_db_log_port_t *port;
    ky_status_t status = __bridge_db_get_log_port(log_port, &port);
    if (status != KY_STATUS_SUCCESS) {
        if (release_log_port != 1)
            LOG_DEBUG("__bridge_db_get_log_port failed when clearing port(0x%08X).\n", log_port);
        return KY_STATUS_SUCCESS;
    }
    status = delete_virtual_ports(*port);
    if (status != KY_STATUS_SUCCESS || release_log_port == 0)
        return status;

    status = unbind_port(*port);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_unbind_port_from_acl failed for port (0x%08X): %s\n", log_port,
                  kybridge::status_text(status));
        return status;
    }
    status = __bridge_db_free_log_port(log_port);
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("__bridge_db_free_log_port failed for port (0x%08X).\n", log_port);
    return status;
}

ky_status_t ky_bridge_clear_undo(uint32_t log_port, uint8_t swid)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    if (bridge_db->sdk_mode == KY_BRIDGE_SDK_MODE_802_1Q)
        return KY_STATUS_SUCCESS;
    return kybridge::announce_log_port(log_port, swid);
}

ky_status_t __clear_all_bridges()
{
    bridge_db_log_port_t *next = nullptr;
    for (auto *port = bridge_db->log_port_map.first(); port != nullptr; port = next) {
        next = bridge_db->log_port_map.next(port); // the clear frees this one
        ky_bridge_clear_port(port->log_port, 1);
    }
    while (bridge_db_bridge_t *const bridge = bridge_db->bridge_map.first())
        drop_bridge(bridge);
    return KY_STATUS_SUCCESS;
}
