#include "acl.h"

#include "acl_rule.h"
#include "log.h"

// ---- The port's binding to the egress ACL, counted ---------------------------------------------------

ky_status_t __bridge_bind_port_eacl(bridge_acl_region_t *region, bridge_db_log_port_t *log_port)
{
    const kybridge::FunctionTrace trace;

    if (log_port->eacl_region != nullptr) { // also without a use, which is then taken over
        LOG_DEBUG("Port already bound to eACL region.\n");
        ++log_port->eacl_bound_cnt;
        return KY_STATUS_SUCCESS;
    }
    const ky_status_t status = __bridge_bind_port_to_acl(log_port->log_port, region->acl_id, KY_ACL_DIRECTION_EGRESS);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_bind_port_to_acl for port(0x%08X) ACL(%d) failed.\n", log_port->log_port,
                  static_cast<int>(region->acl_id));
        return status;
    }
    log_port->eacl_region = region;
    log_port->eacl_bound_cnt = 1;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_unbind_port_eacl(bridge_acl_region_t *region, bridge_db_log_port_t *log_port)
{
    const kybridge::FunctionTrace trace;

    if (log_port->eacl_bound_cnt == 0) {
        LOG_ERROR("Trying to unbind port(0x%08X) from eACL bound count==0.\n", log_port->log_port);
        return KY_STATUS_PARAM_ERROR;
    }
    if (log_port->eacl_bound_cnt > 1) {
        --log_port->eacl_bound_cnt;
        LOG_DEBUG("Port still belongs to a bridge.\n");
        return KY_STATUS_SUCCESS;
    }
    const ky_status_t status =
        __bridge_unbind_port_from_acl(log_port->log_port, region->acl_id, KY_ACL_DIRECTION_EGRESS);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_unbind_port_from_acl for port(0x%08X) ACL(%d) failed.\n", log_port->log_port,
                  static_cast<int>(region->acl_id));
        return status;
    }
    log_port->eacl_bound_cnt = 0;
    log_port->eacl_region = nullptr;
    return KY_STATUS_SUCCESS;
}

// ---- The bridge's one rule, counted ------------------------------------------------------------------

ky_status_t __bridge_create_or_update_egress_acl_rule(bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport)
{
    const kybridge::FunctionTrace trace;
    bridge_acl_region_t &region = bridge_db->egress_region;

    ky_acl_rules_params_t rule;
    kybridge::fill_rule(rule, region, *bridge, bridge->int_vlan, vport->vlan);

    const bool is_new = vport->egress_offset == nullptr;
    if (is_new && !kybridge::take_offset(region, vport->egress_offset))
        return KY_STATUS_NO_RESOURCES;
    rule.offset = vport->egress_offset->offset;

    const ky_status_t status = acl_rules_set(&rule);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("acl_rules_set for egress acl on vlan(%d) bridge(%d) failed.\n", vport->vlan, bridge->bridge_id);
        if (is_new)
            kybridge::put_offset(region, vport->egress_offset);
    }
    return status;
}

ky_status_t __bridge_create_homogenous_egress_acl_rule(bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport)
{
    const kybridge::FunctionTrace trace;

    if (bridge->egress_rule_ref_cnt != 0) {
        LOG_DEBUG("Bridge already has a rule in egress ACL region.\n");
        vport->egress_offset = bridge->egress_offset;
        ++bridge->egress_rule_ref_cnt;
        return KY_STATUS_SUCCESS;
    }
    const ky_status_t status = __bridge_create_or_update_egress_acl_rule(bridge, vport);
    if (status != KY_STATUS_SUCCESS)
        return status;
    bridge->egress_offset = vport->egress_offset;
    bridge->egress_rule_ref_cnt = 1;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_remove_homogenous_egress_acl_rule(bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport)
{
    const kybridge::FunctionTrace trace;

    if (vport->egress_offset == nullptr)
        return KY_STATUS_SUCCESS;

    vport->egress_offset = nullptr;
    if (bridge->egress_rule_ref_cnt > 1) {
        LOG_DEBUG("Bridges ACL region is still in use.\n");
        --bridge->egress_rule_ref_cnt;
        return KY_STATUS_SUCCESS;
    }
    const ky_status_t status = kybridge::delete_rule(bridge_db->egress_region, *bridge->egress_offset);
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("acl_rules_set for egress acl on vlan(%d) bridge(%d) failed.\n", vport->vlan, bridge->bridge_id);
    // Unlike an ingress rule, a refused one is given up as well.
    kybridge::put_offset(bridge_db->egress_region, bridge->egress_offset);
    bridge->egress_rule_ref_cnt = 0;
    return status;
}

// ---- The egress side of a virtual port ---------------------------------------------------------------

ky_status_t __bridge_create_egress_acl_rule(bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport)
{
    const kybridge::FunctionTrace trace;

    bridge_db_log_port_t *log_port;
    ky_status_t status = __bridge_db_get_log_port(vport->log_port, &log_port);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_get_log_port failed when adding eACL.\n");
        return status;
    }
    if (!kybridge::is_homogenous_mode())
        return KY_STATUS_PARAM_ERROR;
    status = __bridge_create_homogenous_egress_acl_rule(bridge, vport);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_create_homogenous_eress_acl_rule failed when adding eACL.\n");
        return status;
    }
    status = __bridge_bind_port_eacl(&bridge_db->egress_region, log_port);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_bind_port_eacl failed when adding eACL.\n");
        __bridge_remove_homogenous_egress_acl_rule(bridge, vport);
        return status;
    }
    vport->holds_eacl_binding = true;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_remove_egress_acl_rule(bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport)
{
    const kybridge::FunctionTrace trace;

    bridge_db_log_port_t *log_port;
    ky_status_t status = __bridge_db_get_log_port(vport->log_port, &log_port);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_db_get_log_port failed when removing eACL.\n");
        return status;
    }
    if (!kybridge::is_homogenous_mode())
        return KY_STATUS_PARAM_ERROR;
    if (vport->holds_eacl_binding) {
        status = __bridge_unbind_port_eacl(&bridge_db->egress_region, log_port);
        if (status != KY_STATUS_SUCCESS) {
            LOG_ERROR("__bridge_unbind_port_eacl failed when removing eACL.\n");
            return status;
        }
        vport->holds_eacl_binding = false;
    }
    status = __bridge_remove_homogenous_egress_acl_rule(bridge, vport);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("__bridge_remove_homogenous_egress_acl_rule failed when removing eACL.\n");
        const ky_status_t restored = __bridge_bind_port_eacl(&bridge_db->egress_region, log_port);
        vport->holds_eacl_binding = restored == KY_STATUS_SUCCESS;
        return status;
    }
    return KY_STATUS_SUCCESS;
}
