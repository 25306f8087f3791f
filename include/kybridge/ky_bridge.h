/// @file ky_bridge.h
/// The bridge module of the SDK, libkybridge.so.1: its exported interface.
///
/// In IEEE 802.1D mode users create bridges and attach virtual ports to them, a virtual port being a
/// pair of a logical port and a VLAN. The module maps each pair's traffic onto the bridge's internal
/// VLAN and back, by rules in two ACL regions of its own.
///
/// What holds for every function, where its own text does not say otherwise:
/// - Calls run to the end on the caller's thread. There is no lock: the host makes one call at a time.
/// - Before ky_bridge_init and after ky_bridge_deinit a call logs a debug line, writes nothing and
///   returns KY_STATUS_SUCCESS.
/// - In 802.1Q mode nothing is built: a bridge, port or VLAN is answered as not found, and creating a
///   bridge finds none free.
/// - A status of an SDK service passes through unchanged.
/// - A call that fails writes no answer, and leaves database and hardware as they were before it, as
///   far as the SDK does not refuse the undoing as well; its answer to that is at most logged.
/// - `is_internal` non-zero also finds bridges that were created as internal ones.
///
/// Compiles alone, as C11 and as C++20.
#ifndef KYBRIDGE_KY_BRIDGE_H
#define KYBRIDGE_KY_BRIDGE_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "ky_sdk.h"
#include "ky_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Start, stop, mode --------------------------------------------------------------------- */

/// Sizes of the module in 802.1D mode. 802.1Q mode does not look at the numbers, but there too
/// KY_BRIDGE_MULTIPLE_VLAN_MODE_NON_HOMOGENOUS is refused.
typedef struct ky_bridge_mode_1d_params {
    uint32_t max_bridge_num;            ///< bridges, 1 to the device's limit
    uint32_t max_virtual_ports_num;     ///< virtual ports of all bridges, 1 to KY_VIRTUAL_PORTS_MAX
    uint32_t multiple_vlan_bridge_mode; ///< KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS
} ky_bridge_mode_1d_params_t;

/// How the module is to start.
typedef struct ky_bridge_init_params {
    uint32_t sdk_mode; ///< ky_bridge_sdk_mode
    struct {
        ky_bridge_mode_1d_params_t mode_1D;
    } sdk_mode_params; ///< by mode
} ky_bridge_init_params_t;

static_assert(sizeof(ky_bridge_init_params_t) == 16, "initialisation parameters");
static_assert(offsetof(ky_bridge_init_params_t, sdk_mode_params) == 4, "initialisation parameters");

/// The bridge database; its members are the module's own.
typedef struct bridge_db_record bridge_db_t;

/// The module's database; NULL while the module is not started. Read only.
KY_BRIDGE_API extern bridge_db_t *bridge_db;

/// Tells whether the module serves a switch partition. @param swid 0 to 255 @return 0 when it does
typedef ky_status_t (*ky_swid_validation_func_t)(unsigned int swid);

/// The host stores its SWID validation here before ports are announced. While it is NULL, port
/// events are ignored and adding or deleting a virtual port fails with KY_STATUS_PARAM_ERROR.
KY_BRIDGE_API extern ky_swid_validation_func_t swid_validation_func_ptr;

/// Starts the module. In 802.1D mode builds the database, creates both ACL regions with their ACLs
/// and registers for port events; every failure undoes, in reverse, what was done before it, except
/// a registration. Must not be called again before ky_bridge_deinit: it does not test for that.
/// @param[in] bridge_init_param mode and sizes
/// @retval KY_STATUS_SUCCESS started
/// @retval KY_STATUS_PARAM_ERROR `bridge_init_param` is NULL (the module is then in 802.1Q mode until
///         ky_bridge_deinit), the hybrid or an unknown mode, or `multiple_vlan_bridge_mode` is 1, in
///         802.1D mode also above 1
/// @retval KY_STATUS_PARAM_EXCEEDS_RANGE 802.1D mode: `max_bridge_num` or `max_virtual_ports_num` out
///         of range
/// @retval KY_STATUS_ERROR the pool of a region's rule offsets could not be built
/// @retval other the status of the memory utility, the ACL manager or the adviser
KY_BRIDGE_API ky_status_t ky_bridge_init(const ky_bridge_init_params_t *bridge_init_param);

/// Stops the module: clears every port and bridge, and releases the database whatever fails before.
/// The ACL regions, the VLAN groups of bridges and the registrations for port events stay.
/// @return the status of releasing the database's memory; 0 when there was none
KY_BRIDGE_API ky_status_t ky_bridge_deinit(void);

/// Reads the mode that the module runs in, also before the start.
/// @param[out] mode_p ky_bridge_sdk_mode; KY_BRIDGE_SDK_MODE_802_1Q while the module is not started
/// @retval KY_STATUS_PARAM_NULL `mode_p` is NULL
KY_BRIDGE_API ky_status_t ky_bridge_mode_get(ky_bridge_sdk_mode_t *mode_p);

/// Sets what the module logs: 0 nothing, 1 errors, 3 notices too, 5 debug lines too, 6 function
/// traces too. Works before the start and survives restarts; the initial level is 3.
/// @param level any number; above 6 is as 6
/// @return KY_STATUS_SUCCESS
KY_BRIDGE_API ky_status_t ky_bridge_log_verbosity_level_set(uint32_t level);

/// Reads the level of ky_bridge_log_verbosity_level_set.
/// @param[out] level_p must not be NULL
/// @return KY_STATUS_SUCCESS
KY_BRIDGE_API ky_status_t ky_bridge_log_verbosity_level_get(uint32_t *level_p);

/* ---- Bridges ------------------------------------------------------------------------------- */

/// Creates or destroys a bridge, and refreshes the RSTP state of every port with virtual ports.
/// @param cmd KY_ACCESS_CMD_CREATE or KY_ACCESS_CMD_DESTROY
/// @param[in,out] bridge_id_p CREATE: the new bridge out, 1 to max_bridge_num; DESTROY: the bridge
/// @param is_internal CREATE: non-zero makes an internal bridge; DESTROY: passed to the lookup
/// @retval KY_STATUS_NO_RESOURCES CREATE: no bridge or internal VLAN is free
/// @retval KY_STATUS_CMD_UNSUPPORTED another `cmd`
/// @retval KY_STATUS_PARAM_ERROR `bridge_id_p` is NULL
/// @retval KY_STATUS_ENTRY_NOT_FOUND DESTROY: no such bridge
/// @retval KY_STATUS_RESOURCE_IN_USE DESTROY: it has virtual ports, references or a VLAN group
/// @retval other the status of the spanning tree; after a DESTROY the bridge is gone all the same
KY_BRIDGE_API ky_status_t ky_bridge_set(ky_access_cmd_t cmd, uint16_t *bridge_id_p, uint32_t is_internal);

/// Takes a reference on a bridge, internal or not; a bridge with references cannot be destroyed.
/// @param bridge_id the bridge
/// @retval KY_STATUS_ENTRY_NOT_FOUND no such bridge
KY_BRIDGE_API ky_status_t ky_bridge_ref_cnt_increase(uint16_t bridge_id);

/// Gives a reference back, on a bridge that is internal or not. A count of 0 stays 0, with
/// KY_STATUS_SUCCESS.
/// @param bridge_id the bridge
/// @retval KY_STATUS_ENTRY_NOT_FOUND no such bridge
KY_BRIDGE_API ky_status_t ky_bridge_ref_cnt_decrease(uint16_t bridge_id);

/* ---- Virtual ports ------------------------------------------------------------------------- */

/// Attaches a virtual port to a bridge, detaches it, or detaches all virtual ports of a logical port as
/// ky_bridge_clear_port does without releasing it. When the ACL manager refuses to delete the bridge's
/// egress rule, which its last virtual port takes along, the virtual port stays attached without that
/// rule; deleting it again comes through.
/// @param cmd KY_ACCESS_CMD_ADD, KY_ACCESS_CMD_DELETE or KY_ACCESS_CMD_DELETE_PORT (reads `log_port` only)
/// @param bridge_id the bridge
/// @param log_port the logical port
/// @param vlan VLAN ID that the port's traffic carries, 0 to KY_VLAN_ID_MAX
/// @param egress_mode ky_egress_mode of the port in its VLAN and in the bridge's internal VLAN; DELETE
///        checks its range and takes the mode of the ADD
/// @param is_internal passed to the bridge lookup
/// @retval KY_STATUS_SUCCESS done; DELETE_PORT also for an unknown port and in 802.1Q mode
/// @retval KY_STATUS_NO_RESOURCES ADD: no virtual port or rule offset is free
/// @retval KY_STATUS_CMD_UNSUPPORTED another `cmd`
/// @retval KY_STATUS_PARAM_ERROR ADD: the bridge's virtual ports use another VLAN; ADD and DELETE: the
///         port is a router port or a LAG member, or there is no SWID validation; DELETE: the port is
///         bound to another egress ACL; DELETE_PORT: a deletion was refused
/// @retval KY_STATUS_PARAM_EXCEEDS_RANGE ADD and DELETE: `vlan` or `egress_mode` out of range
/// @retval KY_STATUS_ENTRY_NOT_FOUND no such bridge; ADD: the port was not announced; DELETE: no such
///         virtual port
/// @retval KY_STATUS_ENTRY_ALREADY_EXISTS ADD: the pair is attached, to this bridge or another
/// @retval other the status of the SDK service or of the SWID validation that refused
KY_BRIDGE_API ky_status_t ky_bridge_port_set(ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t log_port, uint16_t vlan,
                                             uint32_t egress_mode, uint32_t is_internal);

/// Deletes every virtual port of a logical port, lowest VLAN first, through the SDK's bridge_port_set,
/// and can then release the port: unbind it from the ingress ACL and forget it. What was deleted
/// before a refusal stays deleted. An unknown port is no error; in 802.1Q mode nothing is done (0).
/// @param log_port the logical port
/// @param release_log_port non-zero releases the port
/// @retval KY_STATUS_PARAM_ERROR a deletion was refused or did nothing, or the port is bound to another ACL
/// @retval other the ACL manager's status; the port stays known
KY_BRIDGE_API ky_status_t ky_bridge_clear_port(uint32_t log_port, uint32_t release_log_port);

/// Brings a released port back as if it had been announced, without virtual ports. In 802.1Q mode
/// nothing is done (0).
/// @param log_port the logical port
/// @param swid its switch partition, kept as it is given
/// @retval KY_STATUS_NO_RESOURCES no logical port record is free
/// @retval KY_STATUS_NO_MEMORY no memory for the port's VLAN counters
/// @retval KY_STATUS_ENTRY_ALREADY_EXISTS the port is known
/// @retval other the ACL manager refused the binding; the port stays known
KY_BRIDGE_API ky_status_t ky_bridge_clear_undo(uint32_t log_port, uint8_t swid);

/* ---- Queries ------------------------------------------------------------------------------- */

/// One virtual port in the list of ky_bridge_port_get, 12 bytes.
typedef struct ky_bridge_port {
    uint32_t log_port;    ///< the logical port
    uint16_t vlan;        ///< its VLAN
    uint16_t reserved_6;  ///< not written
    uint32_t egress_mode; ///< ky_egress_mode
} ky_bridge_port_t;

static_assert(sizeof(ky_bridge_port_t) == 12, "virtual port of a list");
static_assert(offsetof(ky_bridge_port_t, vlan) == 4, "virtual port of a list");
static_assert(offsetof(ky_bridge_port_t, egress_mode) == 8, "virtual port of a list");

/// Lists a bridge's virtual ports in ascending order of their logical ports. More than fit are left out.
/// @param bridge_id the bridge
/// @param[out] bridge_port_list_p room for `*bridge_port_cnt_p` entries; NULL only counts
/// @param[in,out] bridge_port_cnt_p capacity in entries, 0 only counts; out: entries written or counted,
///        on success only
/// @param is_internal passed to the bridge lookup
/// @retval KY_STATUS_ENTRY_NOT_FOUND no such bridge
/// @retval KY_STATUS_PARAM_ERROR `bridge_port_cnt_p` is NULL
KY_BRIDGE_API ky_status_t ky_bridge_port_get(uint16_t bridge_id, ky_bridge_port_t *bridge_port_list_p,
                                             uint32_t *bridge_port_cnt_p, uint32_t is_internal);

/// Reads a bridge's internal VLAN.
/// @param bridge_id the bridge
/// @param[out] vid VLAN ID, 1 to KY_VLAN_ID_MAX
/// @param is_internal passed to the bridge lookup
/// @retval KY_STATUS_PARAM_ERROR `vid` is NULL
/// @retval KY_STATUS_ENTRY_NOT_FOUND no such bridge
KY_BRIDGE_API ky_status_t ky_bridge_int_vlan_id_get(uint16_t bridge_id, uint16_t *vid, uint32_t is_internal);

/// Lists internal VLANs: of all bridges in ascending order, or of one port's bridges in ascending order
/// of the port's own VLANs. Internal bridges are included; more than fit are left out. In 802.1Q mode
/// the list of all is empty.
/// @param log_port the logical port, or 0 for all bridges
/// @param[out] vid room for `*vid_num` VLAN IDs
/// @param[in,out] vid_num capacity in VLAN IDs, 0 is no way to count; out: IDs written, 0 on a failure
///        other than KY_STATUS_PARAM_NULL
/// @retval KY_STATUS_PARAM_NULL `vid_num` or `vid` is NULL, also while the module is not started
/// @retval KY_STATUS_ENTRY_NOT_FOUND the port is not known
/// @retval KY_STATUS_ERROR the list of all could not be made
KY_BRIDGE_API ky_status_t ky_bridge_int_vlan_list_get(uint32_t log_port, uint16_t *vid, uint32_t *vid_num);

/// Finds the bridge, internal or not, that owns an internal VLAN.
/// @param int_vlan VLAN ID
/// @param[out] bridge_id the bridge
/// @retval KY_STATUS_PARAM_ERROR `bridge_id` is NULL
/// @retval KY_STATUS_ENTRY_NOT_FOUND no bridge owns it
KY_BRIDGE_API ky_status_t ky_bridge_int_vlan_bridge_id_get(uint16_t int_vlan, uint16_t *bridge_id);

/// Tells by its status whether a logical port has virtual ports.
/// @param arg not read
/// @param log_port the logical port
/// @retval KY_STATUS_SUCCESS it has at least one
/// @retval KY_STATUS_ENTRY_NOT_FOUND it has none, is not known, or the module runs in 802.1Q mode
KY_BRIDGE_API ky_status_t ky_bridge_log_port_member_state(uint32_t arg, uint32_t log_port);

/* ---- User ACLs and learning ---------------------------------------------------------------- */

/// Binds a bridge's traffic, in one direction, to a VLAN group that a user's ACLs can be bound to, or
/// unbinds it. Both directions share the group: the first bind creates it, the last unbind destroys it.
/// An unbind that the ACL manager refuses has given up its direction all the same; the group then
/// stays for the next bind (after a refused DESTROY without the bridge's VLAN), and the bridge cannot be
/// destroyed. Internal bridges are not found.
/// @param cmd KY_ACCESS_CMD_BIND or KY_ACCESS_CMD_UNBIND
/// @param bridge_id the bridge
/// @param direction ky_acl_direction
/// @param[out] vlan_group BIND: the group; UNBIND: not written, may be NULL
/// @retval KY_STATUS_PARAM_NULL BIND and `vlan_group` is NULL
/// @retval KY_STATUS_PARAM_EXCEEDS_RANGE `direction` above 1
/// @retval KY_STATUS_NO_RESOURCES no memory for the request
/// @retval KY_STATUS_ENTRY_NOT_FOUND no such bridge; UNBIND: not bound in that direction
/// @retval KY_STATUS_CMD_ERROR another `cmd`
/// @retval KY_STATUS_RESOURCE_IN_USE BIND: already bound in that direction
/// @retval other the ACL manager's status
KY_BRIDGE_API ky_status_t ky_bridge_int_vlan_group_set(ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t direction,
                                                       uint16_t *vlan_group);

/// Reads a bridge's VLAN group. Internal bridges are not found.
/// @param bridge_id the bridge
/// @param[out] vlan_group the group
/// @retval KY_STATUS_PARAM_ERROR `vlan_group` is NULL
/// @retval KY_STATUS_ENTRY_NOT_FOUND no such bridge, or it has no group
KY_BRIDGE_API ky_status_t ky_bridge_int_vlan_group_get(uint16_t bridge_id, uint16_t *vlan_group);

/// Tells which of the module's own ACLs apply to a logical port.
/// @param log_port the logical port
/// @param[out] ingress_acl the ACL, or NULL to skip it
/// @param[out] egress_acl the ACL, KY_ACL_ID_NONE while the port has no virtual port; or NULL to skip it
/// @retval KY_STATUS_UNSUPPORTED the module runs in 802.1Q mode
/// @retval KY_STATUS_ENTRY_NOT_FOUND the port is not known
KY_BRIDGE_API ky_status_t ky_bridge_port_acl_binding_get(uint32_t log_port, uint32_t *ingress_acl,
                                                         uint32_t *egress_acl);

/// Sets a bridge's learning mode and rewrites its rules with it. The mode is stored before the first
/// rule is written and stays when a write is refused, where the walk stops; setting it again then
/// writes nothing.
/// @param bridge_id the bridge
/// @param learning_mode ky_fdb_learn_mode; any number is stored, and all but 0 learn
/// @param is_internal passed to the bridge lookup
/// @retval KY_STATUS_ENTRY_NOT_FOUND no such bridge
/// @retval other the ACL manager's status
KY_BRIDGE_API ky_status_t ky_bridge_set_learning_mode(uint16_t bridge_id, ky_fdb_learn_mode_t learning_mode,
                                                      uint32_t is_internal);

/// Reads a bridge's learning mode.
/// @param bridge_id the bridge
/// @param[out] learning_mode_p the mode as it was set
/// @param is_internal passed to the bridge lookup
/// @retval KY_STATUS_PARAM_NULL `learning_mode_p` is NULL, also while the module is not started
/// @retval KY_STATUS_ENTRY_NOT_FOUND no such bridge
KY_BRIDGE_API ky_status_t ky_bridge_get_learning_mode(uint16_t bridge_id, ky_fdb_learn_mode_t *learning_mode_p,
                                                      uint32_t is_internal);

#ifdef __cplusplus
}
#endif

#endif
