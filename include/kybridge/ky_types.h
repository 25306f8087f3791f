/// @file ky_types.h
/// Numbers that every module of the SDK shares: statuses, access commands, directions and modes.
///
/// All of them are plain unsigned 32-bit numbers at the library's border, so that a code of another
/// module passes through unchanged; the enumerations only give the known ones their names.
/// Compiles alone, as C11 and as C++20.
#ifndef KYBRIDGE_KY_TYPES_H
#define KYBRIDGE_KY_TYPES_H

#include <stdint.h>

/// Marks what libkybridge.so.1 exports; everything else stays inside.
#define KY_BRIDGE_API __attribute__((visibility("default")))

/// Status of an SDK call: 0 is success. Codes that this list does not name come from other modules.
typedef uint32_t ky_status_t;

/// Statuses that the SDK's modules share.
enum ky_status {
    KY_STATUS_SUCCESS = 0,
    KY_STATUS_ERROR = 1,
    KY_STATUS_SDK_NOT_INITIALIZED = 2,
    KY_STATUS_INVALID_HANDLE = 3,
    KY_STATUS_COMM_ERROR = 4,
    KY_STATUS_NO_RESOURCES = 5,
    KY_STATUS_NO_MEMORY = 6,
    KY_STATUS_MEMORY_ERROR = 7,
    KY_STATUS_CMD_ERROR = 8,
    KY_STATUS_CMD_INCOMPLETE = 9,
    KY_STATUS_CMD_UNSUPPORTED = 10,
    KY_STATUS_CMD_UNPERMITTED = 11,
    KY_STATUS_PARAM_NULL = 12,
    KY_STATUS_PARAM_ERROR = 13,
    KY_STATUS_PARAM_EXCEEDS_RANGE = 14,
    KY_STATUS_MESSAGE_SIZE_INVALID = 15,
    KY_STATUS_MESSAGE_SIZE_EXCEEDS_LIMIT = 16,
    KY_STATUS_DB_ALREADY_INITIALIZED = 17,
    KY_STATUS_DB_NOT_INITIALIZED = 18,
    KY_STATUS_DB_NOT_EMPTY = 19,
    KY_STATUS_END_OF_DB = 20,
    KY_STATUS_ENTRY_NOT_FOUND = 21,
    KY_STATUS_ENTRY_ALREADY_EXISTS = 22,
    KY_STATUS_ENTRY_NOT_BOUND = 23,
    KY_STATUS_ENTRY_ALREADY_BOUND = 24,
    KY_STATUS_WRONG_POLICER_TYPE = 25,
    KY_STATUS_UNEXPECTED_EVENT_TYPE = 26,
    KY_STATUS_TRAP_ID_NOT_CONFIGURED = 27,
    KY_STATUS_INT_COMM_CLOSE = 28,
    KY_STATUS_RESOURCE_IN_USE = 29,
    KY_STATUS_TRAP_ID_ALREADY_ASSOCIATED = 30,
    KY_STATUS_ALREADY_INITIALIZED = 31,
    KY_STATUS_TIMEOUT = 32,
    KY_STATUS_MODULE_UNINITIALIZED = 33,
    KY_STATUS_UNSUPPORTED = 34,
    KY_STATUS_UTILS_RETURNED_NON_ZERO = 35,
    KY_STATUS_PARTIALLY_COMPLETE = 36,
    KY_STATUS_DRIVER_RETURNED_NON_ZERO = 101
};

/// What a call is asked to do. Each function and service names the commands that it takes.
typedef uint32_t ky_access_cmd_t;

/// Commands that the SDK's modules share.
enum ky_access_cmd {
    KY_ACCESS_CMD_NONE = 0,
    KY_ACCESS_CMD_ADD = 1,
    KY_ACCESS_CMD_EDIT = 2,
    KY_ACCESS_CMD_DELETE = 3,
    KY_ACCESS_CMD_DELETE_ALL = 4,
    KY_ACCESS_CMD_SOFT_ADD = 5,
    KY_ACCESS_CMD_SOFT_EDIT = 6,
    KY_ACCESS_CMD_SOFT_DELETE = 7,
    KY_ACCESS_CMD_TEST = 8,
    KY_ACCESS_CMD_APPLY = 9,
    KY_ACCESS_CMD_ENABLE = 10,
    KY_ACCESS_CMD_DISABLE = 11,
    KY_ACCESS_CMD_CREATE = 12,
    KY_ACCESS_CMD_DESTROY = 13,
    KY_ACCESS_CMD_COUNT = 14,
    KY_ACCESS_CMD_SET = 15,
    KY_ACCESS_CMD_UNSET = 16,
    KY_ACCESS_CMD_GET = 17,
    KY_ACCESS_CMD_GETNEXT = 18,
    KY_ACCESS_CMD_REGISTER = 19,
    KY_ACCESS_CMD_DEREGISTER = 20,
    KY_ACCESS_CMD_GET_ALL = 21,
    KY_ACCESS_CMD_TEST_HW = 22,
    KY_ACCESS_CMD_ADD_PORTS = 23,
    KY_ACCESS_CMD_DELETE_PORTS = 24,
    KY_ACCESS_CMD_BIND = 25,
    KY_ACCESS_CMD_UNBIND = 26,
    KY_ACCESS_CMD_GET_FIRST = 27,
    KY_ACCESS_CMD_REPLACE_ALL_PORTS = 28,
    KY_ACCESS_CMD_DELETE_ALL_PORTS = 29,
    KY_ACCESS_CMD_READY = 30,
    KY_ACCESS_CMD_READ = 31,
    KY_ACCESS_CMD_READ_CLEAR = 32,
    KY_ACCESS_CMD_CLEAR = 33,
    KY_ACCESS_CMD_DELETE_PORT = 34
};

/// Direction of an ACL, a region or a binding, seen from the switch.
typedef uint32_t ky_acl_direction_t;

/// Values of ky_acl_direction_t.
enum ky_acl_direction { KY_ACL_DIRECTION_INGRESS = 0, KY_ACL_DIRECTION_EGRESS = 1 };

/// Mode that the SDK runs in.
typedef uint32_t ky_bridge_sdk_mode_t;

/// Values of ky_bridge_sdk_mode_t.
enum ky_bridge_sdk_mode {
    KY_BRIDGE_SDK_MODE_802_1Q = 0, ///< forwarding by VLAN alone: the module only keeps the mode
    KY_BRIDGE_SDK_MODE_802_1D = 1, ///< bridges and virtual ports
    KY_BRIDGE_SDK_MODE_HYBRID = 2  ///< refused at start-up
};

/// Which VLANs the virtual ports of one bridge may use.
typedef uint32_t ky_bridge_multiple_vlan_mode_t;

/// Values of ky_bridge_multiple_vlan_mode_t.
enum ky_bridge_multiple_vlan_mode {
    KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS = 0,    ///< all virtual ports of a bridge use one VLAN
    KY_BRIDGE_MULTIPLE_VLAN_MODE_NON_HOMOGENOUS = 1 ///< refused at start-up
};

/// Address learning mode of a bridge. Only whether it is 0 reaches the hardware.
typedef uint32_t ky_fdb_learn_mode_t;

/// Values of ky_fdb_learn_mode_t; others are accepted too.
enum ky_fdb_learn_mode {
    KY_FDB_LEARN_MODE_DONT_LEARN = 0,   ///< a new bridge starts here
    KY_FDB_LEARN_MODE_AUTO_LEARN = 1,   ///< learn source addresses
    KY_FDB_LEARN_MODE_CONTROL_LEARN = 2 ///< in the rules the same as AUTO_LEARN
};

/// Tagging of a port in a VLAN: how its frames leave (IEEE 802.1Q).
typedef uint32_t ky_egress_mode_t;

/// Values of ky_egress_mode_t.
enum ky_egress_mode { KY_EGRESS_MODE_TAGGED = 0, KY_EGRESS_MODE_UNTAGGED = 1 };

/// Events of the SDK's adviser that the module registers for.
enum ky_adviser_event {
    KY_ADVISER_EVENT_PORT_ADD_INTO_SWID = 9, ///< a port entered a switch partition
    KY_ADVISER_EVENT_PORT_DEL_FROM_SWID = 12 ///< a port left a switch partition
};

enum {
    KY_VLAN_ID_MAX = 4094,         ///< highest VLAN ID, of users and of bridges (IEEE 802.1Q)
    KY_VIRTUAL_PORTS_MAX = 512,    ///< most virtual ports that a module can be started with
    KY_VLAN_GROUP_NONE = 0xFFFF,   ///< no VLAN group bound to the bridge
    KY_ACL_ID_NONE = 0xFFFFF,      ///< no ACL applies to the port in that direction
    KY_MSTP_MODE_RSTP = 2,         ///< spanning-tree mode of a SWID in which ports have an RSTP state
    KY_PORT_KIND_TCA_CONNECTOR = 2 ///< kind of a port that cannot carry virtual ports
};

#endif
