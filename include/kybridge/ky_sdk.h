/// @file ky_sdk.h
/// The SDK services that the module calls, and the records that it hands to them.
///
/// The process that loads libkybridge.so.1 supplies every one of these symbols; the library finds
/// them through the dynamic linker when it is loaded. Every record is little-endian, is zeroed by the
/// module and filled field by field; a service writes its answers back into it. Members named
/// `reserved` have no meaning to the module; their comments say what is sent in them.
/// The declarations make the services visible to the library, also in an SDK that is compiled with
/// -fvisibility=hidden and includes this header where it defines them.
/// Compiles alone, as C11 and as C++20.
#ifndef KYBRIDGE_KY_SDK_H
#define KYBRIDGE_KY_SDK_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "ky_types.h"

/// Marks what the process supplies to libkybridge.so.1.
#define KY_SDK_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the records are sent as they lie in memory");

/* ---- ACL manager: regions and ACLs --------------------------------------------------------- */

enum {
    KY_ACL_KEY_TYPE_BRIDGE = 5,           ///< key type of the module's regions and rules
    KY_ACL_ACTION_SET_VLAN_AND_LEARN = 24 ///< action selector of the module's rules
};

/// Parameters of acl_region_set, 20 bytes.
typedef struct ky_acl_region_params {
    uint32_t cmd;         ///< KY_ACCESS_CMD_CREATE or KY_ACCESS_CMD_DESTROY
    uint32_t key_type;    ///< KY_ACL_KEY_TYPE_BRIDGE
    uint32_t reserved;    ///< 0
    uint32_t region_size; ///< number of rules
    uint32_t region_id;   ///< CREATE: 0 in, the new region out; DESTROY: the region
} ky_acl_region_params_t;

static_assert(sizeof(ky_acl_region_params_t) == 20, "region record");
static_assert(offsetof(ky_acl_region_params_t, region_size) == 12, "region record");
static_assert(offsetof(ky_acl_region_params_t, region_id) == 16, "region record");

/// Parameters of acl_set, 32 bytes.
typedef struct ky_acl_params {
    uint32_t cmd;           ///< KY_ACCESS_CMD_CREATE or KY_ACCESS_CMD_DESTROY
    uint32_t acl_id;        ///< CREATE: 0 in, the new ACL out; DESTROY: the ACL
    uint32_t reserved_8;    ///< 0
    uint32_t direction;     ///< ky_acl_direction
    uint32_t reserved_16;   ///< 0
    uint32_t region_id;     ///< the region that the ACL stands on
    uint8_t reserved_24[8]; ///< 0
} ky_acl_params_t;

static_assert(sizeof(ky_acl_params_t) == 32, "ACL record");
static_assert(offsetof(ky_acl_params_t, acl_id) == 4, "ACL record");
static_assert(offsetof(ky_acl_params_t, direction) == 12, "ACL record");
static_assert(offsetof(ky_acl_params_t, region_id) == 20, "ACL record");

/* ---- ACL manager: rules -------------------------------------------------------------------- */

/// Key of a rule, and with the same layout its mask, 132 bytes.
typedef struct ky_acl_key {
    uint32_t key_type;        ///< KY_ACL_KEY_TYPE_BRIDGE; 0 in a delete
    uint8_t reserved_4[14];   ///< 0
    uint16_t vlan;            ///< VLAN ID; in the mask 0xFFFF: all 16 bits compared
    uint8_t reserved_20[8];   ///< 0
    uint32_t log_port;        ///< logical port; in the mask 0xFFFFFFFF, or 0: any port
    uint8_t reserved_32[100]; ///< 0
} ky_acl_key_t;

static_assert(sizeof(ky_acl_key_t) == 0x84, "rule key");
static_assert(offsetof(ky_acl_key_t, vlan) == 0x12, "rule key");
static_assert(offsetof(ky_acl_key_t, log_port) == 0x1C, "rule key");

/// Parameters of acl_rules_set, 6576 bytes: a header and one rule.
typedef struct ky_acl_rules_params {
    uint32_t cmd;               ///< KY_ACCESS_CMD_SET or KY_ACCESS_CMD_DELETE
    uint32_t region_id;         ///< the region that holds the rule
    uint16_t rule_count;        ///< 1
    uint8_t reserved_00a[6];    ///< 0
    uint16_t offset;            ///< the rule's place in its region, 1 to the region's size
    uint8_t valid;              ///< 1 in a written rule, 0 in a delete
    uint8_t reserved_013;       ///< 0
    ky_acl_key_t key;           ///< what a frame is compared with
    ky_acl_key_t mask;          ///< which bits are compared
    uint8_t reserved_11c[20];   ///< 0
    uint32_t action_selector;   ///< KY_ACL_ACTION_SET_VLAN_AND_LEARN; 0 in a delete
    uint16_t new_vlan;          ///< VLAN ID that the frame is given
    uint8_t reserved_136[10];   ///< 0
    uint64_t reserved_140;      ///< 0xFFFFFFFF, in a delete too
    uint8_t reserved_148[4];    ///< 0
    uint32_t dont_learn;        ///< 1: do not learn the source address
    uint8_t reserved_150[6240]; ///< 0
} ky_acl_rules_params_t;

static_assert(sizeof(ky_acl_rules_params_t) == 6576, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, region_id) == 0x004, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, rule_count) == 0x008, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, offset) == 0x010, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, valid) == 0x012, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, key) == 0x014, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, key.vlan) == 0x026, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, key.log_port) == 0x030, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, mask) == 0x098, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, mask.vlan) == 0x0AA, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, mask.log_port) == 0x0B4, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, action_selector) == 0x130, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, new_vlan) == 0x134, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, reserved_140) == 0x140, "rule record");
static_assert(offsetof(ky_acl_rules_params_t, dont_learn) == 0x14C, "rule record");

/* ---- ACL manager: bindings and VLAN groups ------------------------------------------------- */

/// Parameters of acl_bind_port, acl_bind_port_get and acl_unbind_port, 16 bytes.
typedef struct ky_acl_bind_params {
    uint32_t cmd;       ///< KY_ACCESS_CMD_BIND, KY_ACCESS_CMD_GET or KY_ACCESS_CMD_UNBIND
    uint32_t acl_id;    ///< the ACL; GET: 0 in, the bound ACL out
    uint32_t direction; ///< ky_acl_direction
    uint32_t log_port;  ///< the logical port
} ky_acl_bind_params_t;

static_assert(sizeof(ky_acl_bind_params_t) == 16, "binding record");
static_assert(offsetof(ky_acl_bind_params_t, acl_id) == 4, "binding record");
static_assert(offsetof(ky_acl_bind_params_t, direction) == 8, "binding record");
static_assert(offsetof(ky_acl_bind_params_t, log_port) == 12, "binding record");

/// Parameters of acl_vlan_group_set: this 12-byte header, directly followed by a list of unsigned
/// 16-bit VLAN IDs. The module always sends room for one ID, 14 bytes in all, from cl_malloc.
typedef struct ky_acl_vlan_group_params {
    uint32_t cmd;        ///< KY_ACCESS_CMD_CREATE, _ADD, _DELETE or _DESTROY
    uint8_t reserved_4;  ///< 0
    uint8_t reserved_5;  ///< 0
    uint16_t vlan_group; ///< CREATE: 0 in, the new group out; otherwise the group
    uint32_t vlan_count; ///< VLAN IDs in the list: 0 for CREATE, otherwise 1
} ky_acl_vlan_group_params_t;

static_assert(sizeof(ky_acl_vlan_group_params_t) == 12, "VLAN group record");
static_assert(offsetof(ky_acl_vlan_group_params_t, vlan_group) == 6, "VLAN group record");
static_assert(offsetof(ky_acl_vlan_group_params_t, vlan_count) == 8, "VLAN group record");

/// The VLAN list behind the header of a VLAN group record.
static inline uint16_t *ky_acl_vlan_group_list(ky_acl_vlan_group_params_t *group)
{
    return (uint16_t *)(void *)(group + 1); // NOLINT: C needs the C cast
}

/// Creates or destroys an ACL region.
/// @param[in,out] region the region @param arg1 always 4 @param arg2 always 0 @param arg3 always 0
KY_SDK_API ky_status_t acl_region_set(ky_acl_region_params_t *region, uint32_t arg1, uint32_t arg2, uint32_t arg3);
/// Creates or destroys an ACL on a region.
KY_SDK_API ky_status_t acl_set(ky_acl_params_t *acl);
/// Writes (SET) or deletes (DELETE) one rule of a region.
KY_SDK_API ky_status_t acl_rules_set(ky_acl_rules_params_t *rules);
/// Binds a logical port to an ACL in a direction (BIND).
KY_SDK_API ky_status_t acl_bind_port(ky_acl_bind_params_t *binding);
/// Reads the ACL that a port is bound to in a direction (GET).
/// @return 0, or KY_STATUS_ENTRY_NOT_FOUND when it is bound to none
KY_SDK_API ky_status_t acl_bind_port_get(ky_acl_bind_params_t *binding);
/// Unbinds a logical port from an ACL in a direction (UNBIND).
KY_SDK_API ky_status_t acl_unbind_port(ky_acl_bind_params_t *binding);
/// Creates and destroys groups of VLANs, adds VLANs to them and takes them out.
KY_SDK_API ky_status_t acl_vlan_group_set(ky_acl_vlan_group_params_t *group);

/* ---- Ports, VLANs, spanning tree ----------------------------------------------------------- */

/// Tells whether a port is a router port. @return 0 when it is one, anything else when it is not
KY_SDK_API ky_status_t port_db_check_port_mode_router_port(uint32_t log_port);
/// Reads a port's switch partition.
/// @param cmd KY_ACCESS_CMD_GET @param log_port the logical port @param[out] swid 0 to 255
KY_SDK_API ky_status_t port_swid_alloc_get(ky_access_cmd_t cmd, uint32_t log_port, uint8_t *swid);
/// Tells whether a port is a LAG member.
/// @param cmd KY_ACCESS_CMD_GET @param log_port the logical port @param[out] is_member non-zero: it is
KY_SDK_API ky_status_t port_lag_member_state_get(ky_access_cmd_t cmd, uint32_t log_port, uint8_t *is_member);

/// The SDK's own entry for setting a virtual port: the arguments of ky_bridge_port_set. The module
/// calls it with KY_ACCESS_CMD_DELETE and expects it to come back into ky_bridge_port_set.
KY_SDK_API ky_status_t bridge_port_set(ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t log_port, uint16_t vlan,
                                       uint32_t egress_mode, uint32_t is_internal);

/// A VLAN that a port joins or leaves, 8 bytes.
typedef struct ky_vlan_entry {
    uint16_t vlan;       ///< VLAN ID
    uint16_t reserved_2; ///< 0
    uint32_t mode;       ///< ky_egress_mode of the port in the VLAN
} ky_vlan_entry_t;

static_assert(sizeof(ky_vlan_entry_t) == 8, "VLAN entry");
static_assert(offsetof(ky_vlan_entry_t, mode) == 4, "VLAN entry");

/// Makes a port a member of VLANs (ADD) or takes it out of them (DELETE). Joining again is accepted.
/// @param cmd KY_ACCESS_CMD_ADD or KY_ACCESS_CMD_DELETE @param log_port the logical port
/// @param count entries in the array, 1 or 2 @param entries the VLANs, only read; all of them or none take effect
KY_SDK_API ky_status_t vlan_port_multi_vlans_set(ky_access_cmd_t cmd, uint32_t log_port, uint32_t count,
                                                 ky_vlan_entry_t *entries);

/// Reads a SWID's spanning-tree mode. @param cmd KY_ACCESS_CMD_GET @param swid the switch partition
/// @param[out] mode KY_MSTP_MODE_RSTP: its ports have an RSTP state
KY_SDK_API ky_status_t mstp_mode_get(ky_access_cmd_t cmd, uint8_t swid, uint32_t *mode);
/// Reads a port's RSTP state. @param cmd KY_ACCESS_CMD_GET @param log_port the logical port
/// @param[out] state a number of the SDK's own
KY_SDK_API ky_status_t rstp_port_state_get(ky_access_cmd_t cmd, uint32_t log_port, uint32_t *state);
/// Sets a port's RSTP state. @param cmd KY_ACCESS_CMD_SET @param log_port the logical port
/// @param state address of the state, only read
KY_SDK_API ky_status_t rstp_port_state_set(ky_access_cmd_t cmd, uint32_t log_port, uint32_t *state);

/* ---- Resource manager, adviser, memory, log ------------------------------------------------ */

/// Device limits. The real record goes on; the module reads these two members only.
typedef struct rm_resource {
    uint32_t max_bridges;   ///< highest max_bridge_num that a start may ask for
    uint32_t max_log_ports; ///< logical ports of the device
} rm_resource_t;

static_assert(offsetof(rm_resource_t, max_log_ports) == 4, "device limits");

/// Set before ky_bridge_init, which reads it.
KY_SDK_API extern rm_resource_t rm_resource_global;

/// What the adviser passes with a port event. The real record may go on; the module reads three members.
typedef struct ky_port_event {
    uint8_t reserved_0[8];   ///< the adviser's
    uint32_t log_port;       ///< the logical port
    uint8_t swid;            ///< the switch partition
    uint8_t reserved_13[19]; ///< the adviser's
    uint32_t port_kind;      ///< KY_PORT_KIND_TCA_CONNECTOR: cannot carry virtual ports
} ky_port_event_t;

static_assert(offsetof(ky_port_event_t, log_port) == 8, "port event");
static_assert(offsetof(ky_port_event_t, swid) == 12, "port event");
static_assert(offsetof(ky_port_event_t, port_kind) == 32, "port event");

/// Callback of the adviser. @param event_type number of the event @param event its record
typedef ky_status_t (*ky_adviser_callback_t)(uint32_t event_type, const ky_port_event_t *event);

/// Registers a callback for an event.
/// @param arg always 1 @param event_type ky_adviser_event @param callback called with each such event
KY_SDK_API ky_status_t adviser_register_event(uint32_t arg, uint32_t event_type, ky_adviser_callback_t callback);

enum { KY_MEMORY_TAG_BRIDGE = 8 }; ///< under which the record of the module's database is accounted

/// Obtains zero-filled memory. @param[out] memory its address, written only on success
/// @param count records @param size bytes of one record @param tag accounting tag
KY_SDK_API ky_status_t utils_clr_memory_get(void **memory, uint32_t count, uint32_t size, uint32_t tag);
/// Releases memory of utils_clr_memory_get. @param memory its address @param tag the tag that it was obtained with
KY_SDK_API ky_status_t utils_memory_put(void *memory, uint32_t tag);

/// Severities of the SDK log.
enum ky_log_severity { KY_LOG_ERROR = 1, KY_LOG_NOTICE = 7, KY_LOG_DEBUG = 31, KY_LOG_FUNCTION_TRACE = 63 };

/// Writes a text to the SDK log; its line end is part of the message, which one of them lacks.
/// @param severity ky_log_severity @param module name of the calling module @param format as printf's
KY_SDK_API void ky_log(uint32_t severity, const char *module, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

/// Obtains raw memory of the component library. Where the component library has no cl_malloc and cl_free,
/// libkybridge.so.1 brings weak ones on malloc and free; a process's own definitions win.
/// @param size bytes @return its address, or NULL
KY_SDK_API void *cl_malloc(size_t size);
/// Releases memory of cl_malloc. @param memory its address
KY_SDK_API void cl_free(void *memory);

#ifdef __cplusplus
}
#endif

#endif
