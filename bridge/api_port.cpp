/// Virtual ports: attaching one to a bridge step by step, detaching it step by step, and undoing the
/// steps that were completed when a later one is refused.
#include "api.h"

#include "acl.h"
#include "acl_rule.h"
#include "log.h"
#include "vlan.h"

namespace {

/// What the steps of an ADD or DELETE work on.
struct Attachment {
    bridge_db_bridge_t *bridge;
    bridge_db_virtual_port_t *vport;
    bridge_db_log_port_t *log_port; ///< known from the back reference (ADD) or its lookup (DELETE) on; else nullptr
};

/// Gives up, without a call, what a refused undo step left with a virtual port that is about to go, as nobody
/// else knows of it. Its rules stand until their offsets are next written; a port whose last use of the egress
/// binding goes like this stays bound, for its next use.
void give_up_uses(const Attachment &attached)
{
    bridge_db_virtual_port_t *const vport = attached.vport;
    if (vport->ingress_offset != nullptr)
        kybridge::put_offset(bridge_db->ingress_region, vport->ingress_offset);
    if (vport->egress_offset != nullptr && --attached.bridge->egress_rule_ref_cnt == 0)
        kybridge::put_offset(bridge_db->egress_region, attached.bridge->egress_offset);
    if (vport->holds_eacl_binding && attached.log_port != nullptr)
        --attached.log_port->eacl_bound_cnt;
}

// The undo of an ADD: each function takes one completed step back, and then the steps before it. What the steps answer
// is not looked at.

void undo_allocation(const Attachment &added)
{
    give_up_uses(added);
    __bridge_db_free_virtual_port(added.vport, added.bridge);
}

void undo_ingress_rule(const Attachment &added)
{
    __bridge_remove_ingress_acl_rule(added.bridge, added.vport);
    undo_allocation(added);
}

void undo_egress_side(const Attachment &added)
{
    __bridge_remove_egress_acl_rule(added.bridge, added.vport);
    undo_ingress_rule(added);
}

void undo_back_reference(const Attachment &added)
{
    __bridge_db_remove_virtual_port_to_log_port_back_ref(added.vport, added.log_port);
    undo_egress_side(added);
}

/// Refreshes the RSTP state anew, without the back reference.
void undo_rstp_refresh(const Attachment &added)
{
    __bridge_db_remove_virtual_port_to_log_port_back_ref(added.vport, added.log_port);
    __bridge_update_port_rstp_state(added.log_port);
    undo_egress_side(added);
}

ky_status_t add_virtual_port(bridge_db_bridge_t *bridge, uint32_t log_port, uint16_t vlan, uint32_t egress_mode)
{
    Attachment added = {bridge, nullptr, nullptr};

    ky_status_t status = __bridge_db_alloc_virtual_port(bridge, log_port, vlan, egress_mode, &added.vport);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_alloc_virtual_port failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    status = __bridge_create_or_update_ingress_acl_rule(bridge, added.vport);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_create_or_update_ingress_acl_rule failed (%s).\n", kybridge::status_text(status));
        undo_allocation(added);
        return status;
    }
    status = __bridge_create_egress_acl_rule(bridge, added.vport);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_create_egress_acl_rule failed (%s).\n", kybridge::status_text(status));
        undo_ingress_rule(added);
        return status;
    }
    status = __bridge_db_add_virtual_port_to_log_port_back_ref(added.vport, &added.log_port);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_add_virtual_port failed (%s).\n", kybridge::status_text(status));
        undo_egress_side(added);
        return status;
    }
    status = __bridge_update_port_rstp_state(added.log_port);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_update_rstp_state for port(0x%x) failed (%s).\n", log_port, kybridge::status_text(status));
        undo_back_reference(added);
        return status;
    }
    status = __bridge_vlan_enable(bridge, added.vport, added.log_port);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_vlan_enable failed (%s).\n", kybridge::status_text(status));
        undo_rstp_refresh(added);
        return status;
    }
    return KY_STATUS_SUCCESS;
}

// The undo of a DELETE: each function restores what one completed step took away, and then what the steps before it
// took. What the steps answer is not looked at. A restored rule may stand at another offset than before.

void restore_vlans(const Attachment &deleted)
{
    __bridge_vlan_enable(deleted.bridge, deleted.vport, deleted.log_port);
}

void restore_egress_side(const Attachment &deleted)
{
    __bridge_create_egress_acl_rule(deleted.bridge, deleted.vport);
    restore_vlans(deleted);
}

void restore_ingress_rule(const Attachment &deleted)
{
    __bridge_create_or_update_ingress_acl_rule(deleted.bridge, deleted.vport);
    restore_egress_side(deleted);
}

void restore_back_reference(Attachment &deleted)
{
    __bridge_db_add_virtual_port_to_log_port_back_ref(deleted.vport, &deleted.log_port);
    restore_ingress_rule(deleted);
}

/// Refreshes the RSTP state anew, with the back reference.
void restore_rstp_refresh(Attachment &deleted)
{
    __bridge_db_add_virtual_port_to_log_port_back_ref(deleted.vport, &deleted.log_port);
    __bridge_update_port_rstp_state(deleted.log_port);
    restore_ingress_rule(deleted);
}

ky_status_t delete_virtual_port(bridge_db_bridge_t *bridge, uint32_t log_port, uint16_t vlan)
{
    Attachment deleted = {bridge, nullptr, nullptr};

    ky_status_t status = __bridge_db_get_virtual_port_from_bridge(bridge, log_port, vlan, &deleted.vport);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("Could not find port(0x%x) vlan(%d) in bridge(%d).\n", log_port, vlan, bridge->bridge_id);
        return status;
    }
    status = __bridge_db_get_log_port(deleted.vport->log_port, &deleted.log_port);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_get_log_port failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    status = __bridge_vlan_disable(bridge, deleted.vport, deleted.log_port);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_vlan_disable failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    status = __bridge_remove_egress_acl_rule(bridge, deleted.vport);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_remove_egress_acl_rule failed (%s).\n", kybridge::status_text(status));
        restore_vlans(deleted);
        return status;
    }
    status = __bridge_remove_ingress_acl_rule(bridge, deleted.vport);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_remove_ingress_acl_rule failed (%s).\n", kybridge::status_text(status));
        restore_egress_side(deleted);
        return status;
    }
    status = __bridge_db_remove_virtual_port_to_log_port_back_ref(deleted.vport, deleted.log_port);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_remove_virtual_port failed (%s).\n", kybridge::status_text(status));
        restore_ingress_rule(deleted);
        return status;
    }
    status = __bridge_update_port_rstp_state(deleted.log_port);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_update_rstp_state for port(0x%x) failed (%s).\n", log_port, kybridge::status_text(status));
        restore_back_reference(deleted);
        return status;
    }
    status = __bridge_db_free_virtual_port(deleted.vport, bridge);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_return_virtual_port failed (%s).\n", kybridge::status_text(status));
        restore_rstp_refresh(deleted);
        return status;
    }
    return KY_STATUS_SUCCESS;
}

/// Whether the pair is attached to a bridge; a port that the module does not know has no pairs.
bool is_attached(uint32_t log_port, uint16_t vlan)
{
    const bridge_db_log_port_t *const port = bridge_db->log_port_map.find(log_port);
    return port != nullptr && port->back_ref_map.find(vlan) != nullptr;
}

/// What the SWID validation of the host says; without one no SWID is served.
ky_status_t validate_swid(uint8_t swid)
{
    if (swid_validation_func_ptr == nullptr)
        return KY_STATUS_PARAM_ERROR;
    return swid_validation_func_ptr(swid);
}

/// Checks that a port, as the port module has it, can carry virtual ports.
ky_status_t validate_port(uint32_t log_port)
{
    if (port_db_check_port_mode_router_port(log_port) == 0) {
        LOG_ERROR("Port 0x%08X is a router port.\n", log_port);
        return KY_STATUS_PARAM_ERROR;
    }
    uint8_t swid = 0;
    ky_status_t status = port_swid_alloc_get(KY_ACCESS_CMD_GET, log_port, &swid);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("port_swid_alloc_get failed for port 0x%08X -(%s).\n", log_port, kybridge::status_text(status));
        return status;
    }
    status = validate_swid(swid);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("SWID(%d) type mismatch\n", swid);
        return status;
    }
    uint8_t is_member = 0;
    status = port_lag_member_state_get(KY_ACCESS_CMD_GET, log_port, &is_member);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("port_lag_member_state_get failed, err (%s)\n", kybridge::status_text(status));
        return status;
    }
    if (is_member != 0) {
        LOG_ERROR("Try to set port which is a LAG member, err (%s)\n", kybridge::status_text(KY_STATUS_PARAM_ERROR));
        return KY_STATUS_PARAM_ERROR;
    }
    return KY_STATUS_SUCCESS;
}

} // namespace

ky_status_t __bridge_port_set_validate(ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t log_port, uint16_t vlan,
                                       uint32_t egress_mode, uint32_t is_internal, bridge_db_bridge_t **bridge)
{
    const kybridge::FunctionTrace trace;

    ky_status_t status = __bridge_db_get_bridge(bridge_id, bridge, is_internal);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("Could not find bridge_id(%d) in bridge_db.\n", bridge_id);
        return status;
    }
    if (cmd == KY_ACCESS_CMD_ADD) {
        const bridge_db_virtual_port_t *const first = (*bridge)->virtual_port_map.first();
        if (bridge_db->multiple_vlan_bridge_mode == KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS && first != nullptr &&
            first->vlan != vlan) {
            LOG_ERROR("In Homogenous mode all vlans in a bridge (%d) must be the same (%d).\n", bridge_id, first->vlan);
            return KY_STATUS_PARAM_ERROR;
        }
        if (is_attached(log_port, vlan)) {
            LOG_ERROR("Port(0x%08X), vlan(%d) already added to a bridge.\n", log_port, vlan);
            return KY_STATUS_ENTRY_ALREADY_EXISTS;
        }
    }
    status = validate_port(log_port);
    if (status != KY_STATUS_SUCCESS)
        return status;
    if (vlan > KY_VLAN_ID_MAX) {
        LOG_ERROR("vlan exceeds range [%u]\n", vlan);
        return KY_STATUS_PARAM_EXCEEDS_RANGE;
    }
    if (egress_mode > KY_EGRESS_MODE_UNTAGGED) {
        LOG_ERROR("Invalid egress_mode: %d", static_cast<int>(egress_mode));
        return KY_STATUS_PARAM_EXCEEDS_RANGE;
    }
    return KY_STATUS_SUCCESS;
}

ky_status_t ky_bridge_port_set(ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t log_port, uint16_t vlan,
                               uint32_t egress_mode, uint32_t is_internal)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;

    ky_status_t status;
    switch (cmd) {
    case KY_ACCESS_CMD_ADD:
    case KY_ACCESS_CMD_DELETE: {
        bridge_db_bridge_t *bridge;
        status = __bridge_port_set_validate(cmd, bridge_id, log_port, vlan, egress_mode, is_internal, &bridge);
        if (status != KY_STATUS_SUCCESS) {
            LOG_ERROR("__bridge_validate_get_port_set failed (%s).\n", kybridge::status_text(status));
            return status;
        }
        return cmd == KY_ACCESS_CMD_ADD ? add_virtual_port(bridge, log_port, vlan, egress_mode)
                                        : delete_virtual_port(bridge, log_port, vlan);
    }
    case KY_ACCESS_CMD_DELETE_PORT:
        status = ky_bridge_clear_port(log_port, 0);
        if (status != KY_STATUS_SUCCESS)
            LOG_ERROR("ky_bridge_clear_port failed (%s).\n", kybridge::status_text(status));
        return status;
    default:
        LOG_ERROR("cmd unsupported (%s).\n", kybridge::command_text(cmd));
        return KY_STATUS_CMD_UNSUPPORTED;
    }
}
