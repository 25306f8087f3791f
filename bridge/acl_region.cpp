#include "acl.h"

#include "log.h"

namespace {

ky_acl_region_params_t region_record(ky_access_cmd_t cmd, uint32_t size, uint32_t region_id)
{
    ky_acl_region_params_t record = {};
    record.cmd = cmd;
    record.key_type = KY_ACL_KEY_TYPE_BRIDGE;
    record.region_size = size;
    record.region_id = region_id;
    return record;
}

ky_acl_params_t acl_record(ky_access_cmd_t cmd, uint32_t acl_id, uint32_t direction, uint32_t region_id)
{
    ky_acl_params_t record = {};
    record.cmd = cmd;
    record.acl_id = acl_id;
    record.direction = direction;
    record.region_id = region_id;
    return record;
}

ky_status_t send_region(ky_acl_region_params_t &record)
{
    return acl_region_set(&record, 4, 0, 0);
}

} // namespace

bool kybridge::is_homogenous_mode()
{
    if (bridge_db->multiple_vlan_bridge_mode == KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS)
        return true;
    LOG_ERROR("multiple_vlan_bridge mode is not supported.\n");
    return false;
}

cl_status_t __bridge_offset_pool_init(void *object, void *context, cl_pool_item_t **pool_item)
{
    auto *const item = static_cast<bridge_acl_offset_t *>(object);
    auto *const region = static_cast<bridge_acl_region_t *>(context);
    item->offset = static_cast<uint16_t>(region->region_size--);
    *pool_item = &item->pool_item;
    return CL_SUCCESS;
}

ky_status_t __allocate_region(bridge_acl_region_t *region, uint32_t size, uint32_t direction)
{
    const kybridge::FunctionTrace trace;

    ky_acl_region_params_t region_params = region_record(KY_ACCESS_CMD_CREATE, size, 0);
    ky_status_t status = send_region(region_params);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("Failed to set region with size (%d).\n", static_cast<int>(size));
        return status;
    }

    ky_acl_params_t acl_params = acl_record(KY_ACCESS_CMD_CREATE, 0, direction, region_params.region_id);
    status = acl_set(&acl_params);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("Failed to set ACL with region ID (%d).\n", static_cast<int>(region_params.region_id));
        region_params.cmd = KY_ACCESS_CMD_DESTROY;
        send_region(region_params);
        return status;
    }

    region->region_id = region_params.region_id;
    region->region_size = size;
    region->direction = direction;
    region->acl_id = acl_params.acl_id;
    region->offset_pool.build(size, __bridge_offset_pool_init, region);
    if (region->region_size != 0) { // not counted down to the end: some offsets are missing
        LOG_ERROR("Failed to Initialize regions(%d) offset pool.\n", static_cast<int>(region->region_id));
        acl_params.cmd = KY_ACCESS_CMD_DESTROY;
        acl_set(&acl_params);
        region_params.cmd = KY_ACCESS_CMD_DESTROY;
        send_region(region_params);
        return KY_STATUS_ERROR;
    }
    region->region_size = size;
    return KY_STATUS_SUCCESS;
}

ky_status_t __deallocate_region(bridge_acl_region_t *region, uint32_t size, uint32_t direction)
{
    const kybridge::FunctionTrace trace;

    ky_acl_params_t acl_params = acl_record(KY_ACCESS_CMD_DESTROY, region->acl_id, direction, region->region_id);
    ky_status_t status = acl_set(&acl_params);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("Failed to set ACL with region ID (%d).\n", static_cast<int>(region->region_id));
        return status;
    }
    ky_acl_region_params_t region_params = region_record(KY_ACCESS_CMD_DESTROY, size, region->region_id);
    status = send_region(region_params);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("Failed to set region with size (%d).\n", static_cast<int>(size));
        return status;
    }
    region->region_size = 0;
    region->direction = direction;
    region->offset_pool.destroy();
    return KY_STATUS_SUCCESS;
}

ky_status_t __allocate_egress_regions()
{
    const kybridge::FunctionTrace trace;

    if (!kybridge::is_homogenous_mode())
        return KY_STATUS_PARAM_ERROR;
    const ky_status_t status =
        __allocate_region(&bridge_db->egress_region, bridge_db->max_bridge_num, KY_ACL_DIRECTION_EGRESS);
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("Failed to allocate egress region.\n");
    return status;
}

ky_status_t __deallocate_egress_regions()
{
    const kybridge::FunctionTrace trace;

    if (!kybridge::is_homogenous_mode())
        return KY_STATUS_PARAM_ERROR;
    const ky_status_t status =
        __deallocate_region(&bridge_db->egress_region, bridge_db->max_bridge_num, KY_ACL_DIRECTION_EGRESS);
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("Failed to deallocate egress region.\n");
    return status;
}
