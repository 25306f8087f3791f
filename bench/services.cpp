/// SDK services that do nothing, so that what a benchmark measures is the module's own cost. They answer
/// what keeps the module going: ports are plain ports of SWID 0, and an ACL's identifier tells its direction.
#include <cstdlib>

#include "bench/services.h"

namespace {

std::uint32_t acl_of(std::uint32_t direction)
{
    return direction + 1;
}

} // namespace

namespace bench {

ky_status_t (*bridge_port_set_target)(ky_access_cmd_t, std::uint16_t, std::uint32_t, std::uint16_t, std::uint32_t,
                                      std::uint32_t) = nullptr;
ky_adviser_callback_t port_event = nullptr;

} // namespace bench

extern "C" {

rm_resource_t rm_resource_global = {KY_VLAN_ID_MAX, 256};

ky_status_t acl_region_set(ky_acl_region_params_t *region, uint32_t, uint32_t, uint32_t)
{
    region->region_id = 1;
    return 0;
}
ky_status_t acl_set(ky_acl_params_t *acl)
{
    acl->acl_id = acl_of(acl->direction);
    return 0;
}
ky_status_t acl_rules_set(ky_acl_rules_params_t *)
{
    return 0;
}
ky_status_t acl_bind_port(ky_acl_bind_params_t *)
{
    return 0;
}
ky_status_t acl_bind_port_get(ky_acl_bind_params_t *binding)
{
    binding->acl_id = acl_of(binding->direction);
    return 0;
}
ky_status_t acl_unbind_port(ky_acl_bind_params_t *)
{
    return 0;
}
ky_status_t acl_vlan_group_set(ky_acl_vlan_group_params_t *)
{
    return 0;
}
ky_status_t port_db_check_port_mode_router_port(uint32_t)
{
    return 1;
}
ky_status_t port_swid_alloc_get(ky_access_cmd_t, uint32_t, uint8_t *swid)
{
    *swid = 0;
    return 0;
}
ky_status_t port_lag_member_state_get(ky_access_cmd_t, uint32_t, uint8_t *is_member)
{
    *is_member = 0;
    return 0;
}
ky_status_t bridge_port_set(ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t log_port, uint16_t vlan,
                            uint32_t egress_mode, uint32_t is_internal)
{
    return bench::bridge_port_set_target(cmd, bridge_id, log_port, vlan, egress_mode, is_internal);
}
ky_status_t vlan_port_multi_vlans_set(ky_access_cmd_t, uint32_t, uint32_t, ky_vlan_entry_t *)
{
    return 0;
}
ky_status_t mstp_mode_get(ky_access_cmd_t, uint8_t, uint32_t *mode)
{
    *mode = KY_MSTP_MODE_RSTP;
    return 0;
}
ky_status_t rstp_port_state_get(ky_access_cmd_t, uint32_t, uint32_t *state)
{
    *state = 0;
    return 0;
}
ky_status_t rstp_port_state_set(ky_access_cmd_t, uint32_t, uint32_t *)
{
    return 0;
}
ky_status_t adviser_register_event(uint32_t, uint32_t, ky_adviser_callback_t callback)
{
    bench::port_event = callback;
    return 0;
}
ky_status_t utils_clr_memory_get(void **memory, uint32_t count, uint32_t size, uint32_t)
{
    *memory = std::calloc(count, size);
    return *memory != nullptr ? 0 : static_cast<ky_status_t>(KY_STATUS_NO_MEMORY);
}
ky_status_t utils_memory_put(void *memory, uint32_t)
{
    std::free(memory);
    return 0;
}
void ky_log(uint32_t, const char *, const char *, ...) // NOLINT(cert-dcl50-cpp): the SDK's own form
{
}

} // extern "C"

ky_status_t bench::validate_swid(unsigned int)
{
    return 0;
}
