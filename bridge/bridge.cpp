#include "bridge.h"

#include "acl.h"
#include "api.h"
#include "db.h"
#include "log.h"

ky_swid_validation_func_t swid_validation_func_ptr = nullptr;

namespace {

/// Gives the database's memory back; afterwards there is no database, whatever the answer.
ky_status_t release_database()
{
    const ky_status_t status = utils_memory_put(bridge_db, KY_MEMORY_TAG_BRIDGE);
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("Failed to allocate memory for the bridge DB.\n");
    bridge_db = nullptr;
    return status;
}

void log_failed_undo(ky_status_t status)
{
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("Failed to allocate memory for the bridge DB.\n");
}

/// The steps of a start in 802.1D mode that can be undone, in their order.
enum class StartStep { database, ingress_region, egress_region };

/// Undoes a start from its last completed step back to the first, whatever fails on the way.
void undo_start(StartStep completed)
{
    switch (completed) {
    case StartStep::egress_region:
        log_failed_undo(__deallocate_egress_regions());
        [[fallthrough]];
    case StartStep::ingress_region:
        log_failed_undo(__deallocate_region(&bridge_db->ingress_region, bridge_db->max_virtual_ports_num,
                                            KY_ACL_DIRECTION_INGRESS));
        [[fallthrough]];
    case StartStep::database:
        log_failed_undo(__bridge_db_deinit());
    }
    // A region that the ACL manager would not release keeps its pool, which nobody could reach any more.
    bridge_db->ingress_region.offset_pool.destroy();
    bridge_db->egress_region.offset_pool.destroy();
    release_database();
}

/// Builds everything that 802.1D mode needs; what a failure leaves behind is nothing.
ky_status_t start_802_1d()
{
    ky_status_t status = __bridge_db_init();
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("Unable to initialise bridge_db.\n");
        release_database();
        return status;
    }
    status = __allocate_region(&bridge_db->ingress_region, bridge_db->max_virtual_ports_num, KY_ACL_DIRECTION_INGRESS);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("Failed to allocate ingress region.\n");
        undo_start(StartStep::database);
        return status;
    }
    status = __allocate_egress_regions();
    if (status != KY_STATUS_SUCCESS) {
        undo_start(StartStep::ingress_region);
        return status;
    }
    status = adviser_register_event(1, KY_ADVISER_EVENT_PORT_ADD_INTO_SWID, __bridge_port_add_swid_callbacks);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("Failed in adviser_register_event (port_add_into_swid), error: %s \n", kybridge::status_text(status));
        undo_start(StartStep::egress_region);
        return status;
    }
    status = adviser_register_event(1, KY_ADVISER_EVENT_PORT_DEL_FROM_SWID, __bridge_port_add_swid_callbacks);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("Failed in adviser_register_event (port_del_from_swid), error: %s \n", kybridge::status_text(status));
        undo_start(StartStep::egress_region);
        return status;
    }
    return KY_STATUS_SUCCESS;
}

/// Frees the VLAN counters of ports whose clearing was refused: their pool goes, and nobody could reach them.
void free_leftover_vlan_counters()
{
    for (auto *port = bridge_db->log_port_map.first(); port != nullptr; port = bridge_db->log_port_map.next(port))
        cl_free(port->vlan_ref_cnt);
}

/// Empties and takes down what start_802_1d built. The regions stay in the ACL manager.
void stop_802_1d()
{
    ky_status_t status = __clear_all_bridges();
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("Failed in clear_all_bridges error: %s \n", kybridge::status_text(status));
    free_leftover_vlan_counters();
    bridge_db->ingress_region.offset_pool.destroy();
    bridge_db->egress_region.offset_pool.destroy();
    status = __bridge_db_deinit();
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("Unable to deinitialise bridge_db.\n");
}

/// A port left its switch partition. Clearing the port is the SDK's to ask for; here it is only reported.
ky_status_t report_withdrawn_port(uint32_t log_port)
{
    bridge_db_log_port_t *port;
    if (__bridge_db_get_log_port(log_port, &port) == KY_STATUS_SUCCESS)
        LOG_NOTICE("__bridge_port_add_swid_callbacks was called with an existing port (0x%08X).\n", log_port);
    return KY_STATUS_SUCCESS;
}

} // namespace

ky_status_t ky_bridge_init(const ky_bridge_init_params_t *bridge_init_param)
{
    const kybridge::FunctionTrace trace;

    const ky_status_t status =
        utils_clr_memory_get(reinterpret_cast<void **>(&bridge_db), 1, sizeof(bridge_db_t), KY_MEMORY_TAG_BRIDGE);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("Failed to allocate memory for the bridge DB.\n");
        return status;
    }
    if (bridge_init_param == nullptr) {
        LOG_ERROR("bridge_init_param parameter is NULL.\n");
        return KY_STATUS_PARAM_ERROR;
    }
    const ky_bridge_mode_1d_params_t &sizes = bridge_init_param->sdk_mode_params.mode_1D;
    bridge_db->sdk_mode = bridge_init_param->sdk_mode;
    bridge_db->max_bridge_num = sizes.max_bridge_num;
    bridge_db->max_virtual_ports_num = sizes.max_virtual_ports_num;
    bridge_db->multiple_vlan_bridge_mode = sizes.multiple_vlan_bridge_mode;

    if (bridge_db->multiple_vlan_bridge_mode == KY_BRIDGE_MULTIPLE_VLAN_MODE_NON_HOMOGENOUS) {
        LOG_ERROR("KY_BRIDGE_MULTIPLE_VLAN_MODE_NON_HOMOGENOUS is currently not supported.\n");
        release_database();
        return KY_STATUS_PARAM_ERROR;
    }
    switch (bridge_db->sdk_mode) {
    case KY_BRIDGE_SDK_MODE_802_1Q:
        LOG_NOTICE("SDK initiates in 802.1Q mode\n");
        return KY_STATUS_SUCCESS;
    case KY_BRIDGE_SDK_MODE_802_1D:
        LOG_NOTICE("SDK initiates in 802.1D mode\n");
        return start_802_1d();
    case KY_BRIDGE_SDK_MODE_HYBRID:
        LOG_NOTICE("SDK hybrid mode only supported in Veridian\n");
        release_database();
        return KY_STATUS_PARAM_ERROR;
    default:
        LOG_ERROR("SDK mode in not supported.\n");
        release_database();
        return KY_STATUS_PARAM_ERROR;
    }
}

ky_status_t ky_bridge_deinit()
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    if (bridge_db->sdk_mode == KY_BRIDGE_SDK_MODE_802_1D)
        stop_802_1d();
    return release_database();
}

ky_status_t ky_bridge_mode_get(ky_bridge_sdk_mode_t *mode_p)
{
    if (mode_p == nullptr)
        return KY_STATUS_PARAM_NULL;
    *mode_p = KY_BRIDGE_SDK_MODE_802_1Q;
    if (!kybridge::database_is_missing())
        *mode_p = bridge_db->sdk_mode;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_port_add_swid_callbacks(uint32_t event_type, const ky_port_event_t *event)
{
    const kybridge::FunctionTrace trace;

    if (kybridge::database_is_missing())
        return KY_STATUS_SUCCESS;
    if (bridge_db->sdk_mode == KY_BRIDGE_SDK_MODE_802_1Q)
        return KY_STATUS_SUCCESS;
    if (event == nullptr) {
        LOG_ERROR("event parameter is NULL.\n");
        return KY_STATUS_PARAM_NULL;
    }
    if (swid_validation_func_ptr == nullptr || swid_validation_func_ptr(event->swid) != KY_STATUS_SUCCESS)
        return KY_STATUS_SUCCESS;
    if (event->port_kind == KY_PORT_KIND_TCA_CONNECTOR) {
        LOG_DEBUG("Can't update TCA CONNECTOR PORT (0x%08X).\n", event->log_port);
        return KY_STATUS_SUCCESS;
    }
    switch (event_type) {
    case KY_ADVISER_EVENT_PORT_ADD_INTO_SWID:
        return kybridge::announce_log_port(event->log_port, event->swid);
    case KY_ADVISER_EVENT_PORT_DEL_FROM_SWID:
        return report_withdrawn_port(event->log_port);
    default:
        LOG_ERROR("Wrong event type , event type: (%d)\n", static_cast<int>(event_type));
        return KY_STATUS_CMD_ERROR;
    }
}
