#include "acl.h"

#include "acl_rule.h"
#include "log.h"

ky_status_t __bridge_create_or_update_ingress_acl_rule(bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport)
{
    const kybridge::FunctionTrace trace;
    bridge_acl_region_t &region = bridge_db->ingress_region;

    ky_acl_rules_params_t rule;
    kybridge::fill_rule(rule, region, *bridge, vport->vlan, bridge->int_vlan);
    rule.key.log_port = vport->log_port;
    rule.mask.log_port = 0xFFFFFFFF;

    const bool is_new = vport->ingress_offset == nullptr;
    if (is_new && !kybridge::take_offset(region, vport->ingress_offset))
        return KY_STATUS_NO_RESOURCES;
    rule.offset = vport->ingress_offset->offset;

    const ky_status_t status = acl_rules_set(&rule);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("acl_rules_set for ingress acl on port(0x%08X) vlan(%d) bridge(%d) failed.\n", vport->log_port,
                  vport->vlan, bridge->bridge_id);
        if (is_new)
            kybridge::put_offset(region, vport->ingress_offset);
    }
    return status;
}

ky_status_t __bridge_remove_ingress_acl_rule(bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport)
{
    const kybridge::FunctionTrace trace;
    bridge_acl_region_t &region = bridge_db->ingress_region;

    // Without a rule, because a restore was refused, the removal is repeated: nothing is left to do.
    if (vport->ingress_offset == nullptr)
        return KY_STATUS_SUCCESS;

    const ky_status_t status = kybridge::delete_rule(region, *vport->ingress_offset);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("acl_rules_set DELETE for ingress acl on vlan(%d) bridge(%d) failed.\n", vport->vlan,
                  bridge->bridge_id);
        return status;
    }
    kybridge::put_offset(region, vport->ingress_offset);
    return KY_STATUS_SUCCESS;
}
