// The example SDK with one fault, named in the environment variable BROKEN by the check that is to find it; what
// stands behind a colon tells several faults of a check apart. Without it nothing is broken.
#define _GNU_SOURCE
#include <kybridge/ky_sdk.h>

#define acl_region_set sound_acl_region_set
#define acl_set sound_acl_set
#define acl_rules_set sound_acl_rules_set
#define acl_bind_port sound_acl_bind_port
#define acl_bind_port_get sound_acl_bind_port_get
#define acl_unbind_port sound_acl_unbind_port
#define acl_vlan_group_set sound_acl_vlan_group_set
#define port_db_check_port_mode_router_port sound_port_db_check_port_mode_router_port
#define port_swid_alloc_get sound_port_swid_alloc_get
#define port_lag_member_state_get sound_port_lag_member_state_get
#define bridge_port_set sound_bridge_port_set
#define vlan_port_multi_vlans_set sound_vlan_port_multi_vlans_set
#define mstp_mode_get sound_mstp_mode_get
#define rstp_port_state_get sound_rstp_port_state_get
#define rstp_port_state_set sound_rstp_port_state_set
#define adviser_register_event sound_adviser_register_event
#define utils_clr_memory_get sound_utils_clr_memory_get
#define utils_memory_put sound_utils_memory_put
#define ky_log sound_ky_log
#include "examples/sdk/example_sdk.c"
#undef acl_region_set
#undef acl_set
#undef acl_rules_set
#undef acl_bind_port
#undef acl_bind_port_get
#undef acl_unbind_port
#undef acl_vlan_group_set
#undef port_db_check_port_mode_router_port
#undef port_swid_alloc_get
#undef port_lag_member_state_get
#undef bridge_port_set
#undef vlan_port_multi_vlans_set
#undef mstp_mode_get
#undef rstp_port_state_get
#undef rstp_port_state_set
#undef adviser_register_event
#undef utils_clr_memory_get
#undef utils_memory_put
#undef ky_log

#include <unistd.h>

static bool broken(const char *fault)
{
    const char *chosen = getenv("BROKEN");
    return chosen && strcmp(chosen, fault) == 0;
}

static bool module_is_loaded(void)
{
    return dlsym(RTLD_DEFAULT, "ky_bridge_init") != NULL;
}

__attribute__((constructor)) static void set_limits(void)
{
    if (broken("limits.bridges"))
        rm_resource_global.max_bridges = 0;
    if (broken("limits.ports"))
        rm_resource_global.max_log_ports = PORTS - 1;
}

ky_status_t acl_region_set(ky_acl_region_params_t *region, uint32_t arg1, uint32_t arg2, uint32_t arg3)
{
    const bool creates = region->cmd == KY_ACCESS_CMD_CREATE;
    if (creates && arg1 == 4 && broken("region.create"))
        return KY_STATUS_UNSUPPORTED;
    if (!creates && broken("region.destroy"))
        return KY_STATUS_RESOURCE_IN_USE;
    if (creates && regions[1].rules && broken("module.restart:regions-stay"))
        return KY_STATUS_NO_RESOURCES; // there is room for two
    if (!creates && broken("region.distinct"))
        return KY_STATUS_SUCCESS;
    const ky_status_t status = sound_acl_region_set(region, arg1, arg2, arg3);
    if (creates && broken("region.create:size-overwritten"))
        region->region_size = 0;
    if (creates && broken("region.distinct"))
        region->region_id = 1;
    return status;
}

ky_status_t acl_set(ky_acl_params_t *acl)
{
    const bool creates = acl->cmd == KY_ACCESS_CMD_CREATE;
    if (creates && acl->direction == KY_ACL_DIRECTION_EGRESS && broken("acl.create:egress"))
        return KY_STATUS_UNSUPPORTED;
    if (!creates && broken("acl.destroy"))
        return KY_STATUS_RESOURCE_IN_USE;
    if (!creates && (broken("acl.distinct") || broken("acl.not-none")))
        return KY_STATUS_SUCCESS;
    if (creates && broken("acl.create:before-the-record"))
        ((uint32_t *)acl)[-1] = 0;
    const ky_status_t status = sound_acl_set(acl);
    if (creates && broken("acl.distinct"))
        acl->acl_id = 1;
    if (creates && acl->direction == KY_ACL_DIRECTION_EGRESS && broken("acl.not-none"))
        acl->acl_id = KY_ACL_ID_NONE;
    return status;
}

ky_status_t acl_rules_set(ky_acl_rules_params_t *rules)
{
    static unsigned replaced;
    const uint32_t region = rules->region_id - 1;
    const bool sets = rules->cmd == KY_ACCESS_CMD_SET;
    if (broken("rule.write:behind-the-record") && rules[1].cmd == 0)
        return KY_STATUS_ERROR;
    if (sets && rules->offset == regions[region].size && rules->offset > 1 && broken("rule.every-offset:last"))
        return KY_STATUS_PARAM_EXCEEDS_RANGE;
    if (sets && regions[region].rules[rules->offset - 1].valid && broken("rule.replace"))
        return KY_STATUS_ENTRY_ALREADY_EXISTS;
    if (sets && rules->mask.log_port == 0 && regions[region].rules[rules->offset - 1].valid &&
        broken("module.operations:egress-rule"))
        return KY_STATUS_ENTRY_ALREADY_EXISTS; // where a bridge's learning mode changes
    if (sets && regions[region].rules[rules->offset - 1].valid && ++replaced > 100 && broken("module.random:crash"))
        abort();
    if (!sets && broken("rule.delete"))
        return KY_STATUS_CMD_UNSUPPORTED;
    return sound_acl_rules_set(rules);
}

ky_status_t acl_bind_port(ky_acl_bind_params_t *binding)
{
    if (binding->log_port == FIRST_PORT + 3 && broken("binding.bind"))
        return KY_STATUS_NO_RESOURCES;
    if (broken("binding.both-directions"))
        binding->direction = KY_ACL_DIRECTION_INGRESS;
    return sound_acl_bind_port(binding);
}

ky_status_t acl_bind_port_get(ky_acl_bind_params_t *binding)
{
    if (broken("binding.both-directions"))
        binding->direction = KY_ACL_DIRECTION_INGRESS;
    const ky_status_t status = sound_acl_bind_port_get(binding);
    if (broken("binding.read-back"))
        ++binding->acl_id;
    if (status == KY_STATUS_SUCCESS && broken("binding.read-back:port-overwritten"))
        binding->log_port = 0;
    return broken("binding.unbound-is-21") ? KY_STATUS_SUCCESS : status;
}

ky_status_t acl_unbind_port(ky_acl_bind_params_t *binding)
{
    if (broken("binding.both-directions"))
        binding->direction = KY_ACL_DIRECTION_INGRESS;
    if (broken("binding.unbind"))
        find_port(binding->log_port)->acl[KY_ACL_DIRECTION_INGRESS] = 0;
    return sound_acl_unbind_port(binding);
}

ky_status_t acl_vlan_group_set(ky_acl_vlan_group_params_t *group)
{
    if (group->cmd == KY_ACCESS_CMD_DELETE && broken("group.end"))
        return KY_STATUS_CMD_UNSUPPORTED;
    if (group->cmd != KY_ACCESS_CMD_CREATE && (broken("group.distinct") || broken("group.not-none")))
        return KY_STATUS_SUCCESS;
    const ky_status_t status = sound_acl_vlan_group_set(group);
    if (group->cmd == KY_ACCESS_CMD_CREATE && broken("group.distinct"))
        group->vlan_group = 1;
    if (group->cmd == KY_ACCESS_CMD_CREATE && group->vlan_group == 1 && broken("group.not-none"))
        group->vlan_group = KY_VLAN_GROUP_NONE;
    if (broken("group.create:two-vlans"))
        ky_acl_vlan_group_list(group)[1] = 0;
    return status;
}

ky_status_t port_db_check_port_mode_router_port(uint32_t log_port)
{
    return broken("port.router") ? KY_STATUS_SUCCESS : sound_port_db_check_port_mode_router_port(log_port);
}

ky_status_t port_swid_alloc_get(ky_access_cmd_t cmd, uint32_t log_port, uint8_t *swid)
{
    if (broken("port.swid:32-bits"))
        memset(swid, 0, sizeof(uint32_t));
    const ky_status_t status = sound_port_swid_alloc_get(cmd, log_port, swid);
    *swid = (uint8_t)(*swid + (broken("port.swid") ? 1 : 0));
    return status;
}

ky_status_t port_lag_member_state_get(ky_access_cmd_t cmd, uint32_t log_port, uint8_t *is_member)
{
    if (broken("port.lag-member"))
        return KY_STATUS_ENTRY_NOT_FOUND; // no LAG member
    if (broken("port.lag-member:32-bits"))
        memset(is_member, 0, sizeof(uint32_t));
    return sound_port_lag_member_state_get(cmd, log_port, is_member);
}

ky_status_t bridge_port_set(ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t log_port, uint16_t vlan,
                            uint32_t egress_mode, uint32_t is_internal)
{
    if (broken("reentry.comes-back"))
        return KY_STATUS_SUCCESS;
    if (broken("reentry.internal"))
        is_internal = 0;
    const ky_status_t status = sound_bridge_port_set(cmd, bridge_id, log_port, vlan, egress_mode, is_internal);
    return broken("reentry.status") ? KY_STATUS_SUCCESS : status;
}

ky_status_t vlan_port_multi_vlans_set(ky_access_cmd_t cmd, uint32_t log_port, uint32_t count, ky_vlan_entry_t *entries)
{
    static unsigned joins;
    const struct port *port = find_port(log_port);
    const uint16_t byte = entries->vlan / 8;
    const uint8_t bit = (uint8_t)(1U << entries->vlan % 8);
    const bool joins_again = cmd == KY_ACCESS_CMD_ADD && (port->vlans[byte] & bit) != 0;
    const bool retags = ((port->tagged[byte] & bit) != 0) != (entries->mode == KY_EGRESS_MODE_TAGGED);
    const bool leaves = cmd == KY_ACCESS_CMD_DELETE;
    if ((!leaves && count == 1 && broken("vlan.join-one")) || (!leaves && count == 2 && broken("vlan.join-two")) ||
        (leaves && count == 1 && broken("vlan.leave-one")) || (leaves && count == 2 && broken("vlan.leave-two")))
        return KY_STATUS_PARAM_EXCEEDS_RANGE;
    if ((joins_again && !retags && broken("vlan.join-again")) ||
        (joins_again && retags && broken("vlan.join-retagged")))
        return KY_STATUS_ENTRY_ALREADY_EXISTS;
    if (!leaves && ++joins > 400 && broken("module.full:memberships"))
        return KY_STATUS_NO_RESOURCES;
    return sound_vlan_port_multi_vlans_set(cmd, log_port, count, entries);
}

ky_status_t mstp_mode_get(ky_access_cmd_t cmd, uint8_t swid, uint32_t *mode)
{
    if (broken("stp.mode"))
        return KY_STATUS_ENTRY_NOT_FOUND;
    if (broken("stp.mode:64-bits"))
        memset(mode, 0, sizeof(uint64_t));
    return sound_mstp_mode_get(cmd, swid, mode);
}

ky_status_t rstp_port_state_get(ky_access_cmd_t cmd, uint32_t log_port, uint32_t *state)
{
    while (broken("stp.state:hangs"))
        sleep(1);
    return sound_rstp_port_state_get(cmd, log_port, state);
}

ky_status_t rstp_port_state_set(ky_access_cmd_t cmd, uint32_t log_port, uint32_t *state)
{
    if (broken("module.every-port:bound-port") && find_port(log_port)->acl[KY_ACL_DIRECTION_EGRESS] != 0)
        return KY_STATUS_RESOURCE_IN_USE;
    const ky_status_t status = sound_rstp_port_state_set(cmd, log_port, state);
    if (broken("stp.write-back"))
        find_port(log_port)->rstp_state = 0;
    return status;
}

ky_status_t adviser_register_event(uint32_t arg, uint32_t event_type, ky_adviser_callback_t callback)
{
    static bool known[2];
    bool *registered = &known[event_type == KY_ADVISER_EVENT_PORT_DEL_FROM_SWID];
    if (event_type == KY_ADVISER_EVENT_PORT_DEL_FROM_SWID && broken("adviser.register"))
        return KY_STATUS_UNEXPECTED_EVENT_TYPE;
    if (*registered && broken("adviser.again"))
        return KY_STATUS_ENTRY_ALREADY_EXISTS;
    *registered = true;
    return sound_adviser_register_event(arg, event_type, callback);
}

ky_status_t utils_clr_memory_get(void **memory, uint32_t count, uint32_t size, uint32_t tag)
{
    static char kept[8192];
    if (broken("memory.get") || (broken("module.start:memory") && module_is_loaded()))
        return KY_STATUS_NO_MEMORY;
    if (broken("memory.zeroed-again") || broken("memory.separate")) {
        if (broken("memory.separate"))
            memset(kept, 0, sizeof kept);
        *memory = kept;
        return KY_STATUS_SUCCESS;
    }
    const ky_status_t status = sound_utils_clr_memory_get(memory, count, size + 1, tag);
    if (broken("memory.zeroed"))
        ((char *)*memory)[size - 1] = 1;
    if (broken("memory.aligned"))
        *memory = (char *)*memory + 1;
    return status;
}

ky_status_t utils_memory_put(void *memory, uint32_t tag)
{
    if (broken("memory.put"))
        return KY_STATUS_PARAM_ERROR;
    if (broken("memory.aligned") || broken("memory.zeroed-again") || broken("memory.separate"))
        return KY_STATUS_SUCCESS;
    return sound_utils_memory_put(memory, tag);
}

void *cl_malloc(size_t size)
{
    static char blocks[65536], *next = blocks;
    if (!broken("raw-memory.blocks"))
        return malloc(size);
    next += 16;
    return next - 16;
}

void cl_free(void *memory)
{
    if (!broken("raw-memory.blocks"))
        free(memory);
}

void ky_log(uint32_t severity, const char *module, const char *format, ...)
{
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (severity == KY_LOG_FUNCTION_TRACE && broken("log.severities"))
        abort();
    if ((size_t)length >= sizeof text && broken("log.formats"))
        exit(3);
    sound_ky_log(severity, module, "%s", text);
}
