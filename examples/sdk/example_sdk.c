/// The smallest SDK that the bridge module runs on: every service of kybridge/ky_sdk.h, with tables in the place of a
/// switch chip. A library of its own:
///
///     cc -shared -fPIC -o libexample_sdk.so example_sdk.c $(pkg-config --cflags kybridge) -ldl
///     kybridge-conform ./libexample_sdk.so
#define _GNU_SOURCE // RTLD_DEFAULT
#include <dlfcn.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <kybridge/ky_sdk.h>

enum { REGIONS = 16, ACLS = 16, GROUPS = 4096, PORTS = 4, FIRST_PORT = 0x10001 };

rm_resource_t rm_resource_global = {512, PORTS};

// ---- ACL manager: regions, ACLs and rules ---------------------------------------------------------------

/// A rule as the chip would hold it.
struct rule {
    bool valid;
    uint32_t port; ///< 0: any
    uint16_t vlan, new_vlan;
    bool learn;
};

/// Identifiers are places in these tables and one more, so that 0 is none.
static struct {
    uint32_t size;
    struct rule *rules; ///< NULL: a free place
} regions[REGIONS];

static struct {
    bool used;
    uint32_t direction, region;
} acls[ACLS];

ky_status_t acl_region_set(ky_acl_region_params_t *region, uint32_t arg1, uint32_t arg2, uint32_t arg3)
{
    (void)arg1, (void)arg2, (void)arg3;
    if (region->cmd == KY_ACCESS_CMD_CREATE) {
        for (uint32_t i = 0; i < REGIONS; ++i)
            if (!regions[i].rules) {
                regions[i].rules = calloc(region->region_size, sizeof(struct rule));
                if (!regions[i].rules)
                    return KY_STATUS_NO_MEMORY;
                regions[i].size = region->region_size;
                region->region_id = i + 1;
                return KY_STATUS_SUCCESS;
            }
        return KY_STATUS_NO_RESOURCES;
    }
    if (region->cmd != KY_ACCESS_CMD_DESTROY)
        return KY_STATUS_CMD_UNSUPPORTED;
    if (region->region_id - 1 >= REGIONS || !regions[region->region_id - 1].rules)
        return KY_STATUS_ENTRY_NOT_FOUND;
    free(regions[region->region_id - 1].rules);
    regions[region->region_id - 1].rules = NULL;
    return KY_STATUS_SUCCESS;
}

ky_status_t acl_set(ky_acl_params_t *acl)
{
    if (acl->cmd == KY_ACCESS_CMD_CREATE) {
        for (uint32_t i = 0; i < ACLS; ++i)
            if (!acls[i].used) {
                acls[i].used = true;
                acls[i].direction = acl->direction;
                acls[i].region = acl->region_id;
                acl->acl_id = i + 1;
                return KY_STATUS_SUCCESS;
            }
        return KY_STATUS_NO_RESOURCES;
    }
    if (acl->cmd != KY_ACCESS_CMD_DESTROY)
        return KY_STATUS_CMD_UNSUPPORTED;
    if (acl->acl_id - 1 >= ACLS || !acls[acl->acl_id - 1].used)
        return KY_STATUS_ENTRY_NOT_FOUND;
    acls[acl->acl_id - 1].used = false;
    return KY_STATUS_SUCCESS;
}

ky_status_t acl_rules_set(ky_acl_rules_params_t *rules)
{
    if (rules->region_id - 1 >= REGIONS || !regions[rules->region_id - 1].rules)
        return KY_STATUS_ENTRY_NOT_FOUND;
    if (rules->offset < 1 || rules->offset > regions[rules->region_id - 1].size) // the last one is usable
        return KY_STATUS_PARAM_EXCEEDS_RANGE;
    struct rule *rule = &regions[rules->region_id - 1].rules[rules->offset - 1];
    if (rules->cmd == KY_ACCESS_CMD_DELETE && !rule->valid)
        return KY_STATUS_ENTRY_NOT_FOUND;
    rule->valid = rules->valid; // a rule at an offset in use is replaced
    rule->port = rules->key.log_port & rules->mask.log_port;
    rule->vlan = rules->key.vlan;
    rule->new_vlan = rules->new_vlan;
    rule->learn = !rules->dont_learn;
    return KY_STATUS_SUCCESS;
}

// ---- Ports: bindings, VLANs, spanning tree --------------------------------------------------------------

static struct port {
    uint32_t acl[2];         ///< by direction; 0: none
    uint8_t vlans[4096 / 8]; ///< one bit each: a member
    uint8_t tagged[4096 / 8];
    uint32_t rstp_state;
} ports[PORTS] = {{.rstp_state = 2}, {.rstp_state = 2}, {.rstp_state = 2}, {.rstp_state = 2}};

static struct port *find_port(uint32_t log_port)
{
    return log_port - FIRST_PORT < PORTS ? &ports[log_port - FIRST_PORT] : NULL;
}

ky_status_t acl_bind_port(ky_acl_bind_params_t *binding)
{
    struct port *port = find_port(binding->log_port);
    if (!port)
        return KY_STATUS_ENTRY_NOT_FOUND;
    if (port->acl[binding->direction] != 0)
        return KY_STATUS_ENTRY_ALREADY_BOUND;
    port->acl[binding->direction] = binding->acl_id;
    return KY_STATUS_SUCCESS;
}

ky_status_t acl_bind_port_get(ky_acl_bind_params_t *binding)
{
    const struct port *port = find_port(binding->log_port);
    if (!port || port->acl[binding->direction] == 0)
        return KY_STATUS_ENTRY_NOT_FOUND; // not success with an identifier of 0
    binding->acl_id = port->acl[binding->direction];
    return KY_STATUS_SUCCESS;
}

ky_status_t acl_unbind_port(ky_acl_bind_params_t *binding)
{
    struct port *port = find_port(binding->log_port);
    if (!port || port->acl[binding->direction] != binding->acl_id)
        return KY_STATUS_ENTRY_NOT_BOUND;
    port->acl[binding->direction] = 0;
    return KY_STATUS_SUCCESS;
}

ky_status_t vlan_port_multi_vlans_set(ky_access_cmd_t cmd, uint32_t log_port, uint32_t count, ky_vlan_entry_t *entries)
{
    struct port *port = find_port(log_port);
    if (!port)
        return KY_STATUS_ENTRY_NOT_FOUND;
    for (uint32_t i = 0; i < count; ++i) // first look at all of them: both or none
        if (entries[i].vlan > KY_VLAN_ID_MAX)
            return KY_STATUS_PARAM_EXCEEDS_RANGE;
    for (uint32_t i = 0; i < count; ++i) {
        const uint16_t byte = entries[i].vlan / 8;
        const uint8_t bit = (uint8_t)(1U << entries[i].vlan % 8);
        port->vlans[byte] = (uint8_t)(cmd == KY_ACCESS_CMD_ADD ? port->vlans[byte] | bit : port->vlans[byte] & ~bit);
        port->tagged[byte] =
            (uint8_t)(entries[i].mode == KY_EGRESS_MODE_TAGGED ? port->tagged[byte] | bit : port->tagged[byte] & ~bit);
    }
    return KY_STATUS_SUCCESS;
}

ky_status_t port_db_check_port_mode_router_port(uint32_t log_port)
{
    (void)log_port;
    return KY_STATUS_ENTRY_NOT_FOUND; // 0 would say: a router port
}

ky_status_t port_swid_alloc_get(ky_access_cmd_t cmd, uint32_t log_port, uint8_t *swid)
{
    (void)cmd;
    if (!find_port(log_port))
        return KY_STATUS_ENTRY_NOT_FOUND;
    *swid = 0;
    return KY_STATUS_SUCCESS;
}

ky_status_t port_lag_member_state_get(ky_access_cmd_t cmd, uint32_t log_port, uint8_t *is_member)
{
    (void)cmd;
    if (!find_port(log_port))
        return KY_STATUS_ENTRY_NOT_FOUND;
    *is_member = 0;
    return KY_STATUS_SUCCESS;
}

ky_status_t mstp_mode_get(ky_access_cmd_t cmd, uint8_t swid, uint32_t *mode)
{
    (void)cmd, (void)swid;
    *mode = KY_MSTP_MODE_RSTP;
    return KY_STATUS_SUCCESS;
}

ky_status_t rstp_port_state_get(ky_access_cmd_t cmd, uint32_t log_port, uint32_t *state)
{
    (void)cmd;
    const struct port *port = find_port(log_port);
    if (!port)
        return KY_STATUS_ENTRY_NOT_FOUND;
    *state = port->rstp_state;
    return KY_STATUS_SUCCESS;
}

ky_status_t rstp_port_state_set(ky_access_cmd_t cmd, uint32_t log_port, uint32_t *state)
{
    (void)cmd;
    struct port *port = find_port(log_port);
    if (!port)
        return KY_STATUS_ENTRY_NOT_FOUND;
    port->rstp_state = *state; // a chip would be told of it in each of the port's VLANs
    return KY_STATUS_SUCCESS;
}

// ---- VLAN groups ----------------------------------------------------------------------------------------

static uint16_t group_sizes[GROUPS]; ///< VLANs in each group, and one more; 0: a free place

ky_status_t acl_vlan_group_set(ky_acl_vlan_group_params_t *group)
{
    if (group->cmd == KY_ACCESS_CMD_CREATE) {
        for (uint16_t i = 0; i < GROUPS; ++i)
            if (group_sizes[i] == 0) {
                group_sizes[i] = 1;
                group->vlan_group = i;
                return KY_STATUS_SUCCESS;
            }
        return KY_STATUS_NO_RESOURCES;
    }
    if (group->vlan_group >= GROUPS || group_sizes[group->vlan_group] == 0)
        return KY_STATUS_ENTRY_NOT_FOUND;
    uint16_t *size = &group_sizes[group->vlan_group];
    switch (group->cmd) {
    case KY_ACCESS_CMD_ADD: // the VLANs themselves stand in ky_acl_vlan_group_list(group)
        *size = (uint16_t)(*size + group->vlan_count);
        return KY_STATUS_SUCCESS;
    case KY_ACCESS_CMD_DELETE:
        *size = (uint16_t)(*size - group->vlan_count);
        return KY_STATUS_SUCCESS;
    case KY_ACCESS_CMD_DESTROY:
        *size = 0;
        return KY_STATUS_SUCCESS;
    default:
        return KY_STATUS_CMD_UNSUPPORTED;
    }
}

// ---- The way back into the module, adviser, memory, log -------------------------------------------------

ky_status_t bridge_port_set(ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t log_port, uint16_t vlan,
                            uint32_t egress_mode, uint32_t is_internal)
{
    // Looked up when it is needed: the module is loaded after this library, and visible to it (RTLD_GLOBAL).
    typedef ky_status_t (*port_set_t)(ky_access_cmd_t, uint16_t, uint32_t, uint16_t, uint32_t, uint32_t);
    port_set_t port_set;
    *(void **)&port_set = dlsym(RTLD_DEFAULT, "ky_bridge_port_set");
    if (!port_set)
        return KY_STATUS_MODULE_UNINITIALIZED;
    return port_set(cmd, bridge_id, log_port, vlan, egress_mode, is_internal);
}

static ky_adviser_callback_t callbacks[2]; ///< for events 9 and 12; the module has one function for both

ky_status_t adviser_register_event(uint32_t arg, uint32_t event_type, ky_adviser_callback_t callback)
{
    (void)arg;
    if (event_type != KY_ADVISER_EVENT_PORT_ADD_INTO_SWID && event_type != KY_ADVISER_EVENT_PORT_DEL_FROM_SWID)
        return KY_STATUS_UNEXPECTED_EVENT_TYPE;
    callbacks[event_type == KY_ADVISER_EVENT_PORT_DEL_FROM_SWID] = callback; // again at every start: kept once
    return KY_STATUS_SUCCESS;
}

ky_status_t utils_clr_memory_get(void **memory, uint32_t count, uint32_t size, uint32_t tag)
{
    (void)tag;
    void *block = calloc(count, size); // zero-filled, also when it was used before
    if (!block)
        return KY_STATUS_NO_MEMORY;
    *memory = block;
    return KY_STATUS_SUCCESS;
}

ky_status_t utils_memory_put(void *memory, uint32_t tag)
{
    (void)tag;
    free(memory);
    return KY_STATUS_SUCCESS;
}

void ky_log(uint32_t severity, const char *module, const char *format, ...)
{
    if (severity > KY_LOG_NOTICE)
        return;
    va_list arguments;
    va_start(arguments, format);
    fprintf(stderr, "%s: ", module);
    vfprintf(stderr, format, arguments); // the texts bring their own line ends
    va_end(arguments);
}
