/// A bridge's learning mode, which reaches the hardware through the rules of its virtual ports.
#include "kybridge/ky_bridge.h"

#include "acl.h"
#include "log.h"

namespace {

/// Rewrites a bridge's rules with its learning mode: each ingress rule in ascending order of the ports,
/// and the one egress rule after the first virtual port that uses it. Stops at the first refusal, logged.
ky_status_t rewrite_rules(bridge_db_bridge_t *bridge)
{
    bool egress_written = false;
    for (auto *vport = bridge->virtual_port_map.first(); vport != nullptr;
         vport = bridge->virtual_port_map.next(vport)) {
        ky_status_t status = __bridge_create_or_update_ingress_acl_rule(bridge, vport);
        if (status != KY_STATUS_SUCCESS) {
            LOG_ERROR("Failed to configure learning mode to bridge %d (ingress), vport(0x%x,%d)\n", bridge->bridge_id,
                      vport->log_port, vport->vlan);
            return status;
        }
        // A virtual port without a use of the egress rule (a removal was refused) must not write a second one.
        if (egress_written || vport->egress_offset == nullptr)
            continue;
        status = __bridge_create_or_update_egress_acl_rule(bridge, vport);
        if (status != KY_STATUS_SUCCESS) {
            LOG_ERROR("Failed to configure learning mode to bridge %d (egress), vport(0x%x,%d)\n", bridge->bridge_id,
                      vport->log_port, vport->vlan);
            return status;
        }
        egress_written = true;
    }
    return KY_STATUS_SUCCESS;
}

ky_status_t find_bridge(uint16_t bridge_id, bridge_db_bridge_t **bridge, uint32_t is_internal)
{
    const ky_status_t status = __bridge_db_get_bridge(bridge_id, bridge, is_internal);
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("Could not find bridge_id(%d) in bridge_db.\n", bridge_id);
    return status;
}

} // namespace

ky_status_t ky_bridge_set_learning_mode(uint16_t bridge_id, ky_fdb_learn_mode_t learning_mode, uint32_t is_internal)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    bridge_db_bridge_t *bridge;
    const ky_status_t status = find_bridge(bridge_id, &bridge, is_internal);
    if (status != KY_STATUS_SUCCESS)
        return status;
    if (bridge->learning_mode == learning_mode) {
        LOG_DEBUG("Bridge is already in learning mode = %d\n", static_cast<int>(learning_mode));
        return KY_STATUS_SUCCESS;
    }
    bridge->learning_mode = learning_mode;
    return rewrite_rules(bridge);
}

ky_status_t ky_bridge_get_learning_mode(uint16_t bridge_id, ky_fdb_learn_mode_t *learning_mode_p, uint32_t is_internal)
{
    const kybridge::FunctionTrace trace;

    if (learning_mode_p == nullptr) {
        LOG_ERROR("learn param is NULL\n");
        return KY_STATUS_PARAM_NULL;
    }
    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    bridge_db_bridge_t *bridge;
    const ky_status_t status = find_bridge(bridge_id, &bridge, is_internal);
    if (status != KY_STATUS_SUCCESS)
        return status;
    *learning_mode_p = bridge->learning_mode;
    return KY_STATUS_SUCCESS;
}
