/// @file
/// The bridge database: all state of the module, and the operations that build it, tear it down, and
/// allocate, find and free its records.
///
/// The database owns every record for the life of the module. A record is either in its pool or in its
/// map; identifiers stay with their records. Names with two leading underscores are the module's own
/// operations; they are exported for the module's tests and tools, not for other SDK modules.
#ifndef KYBRIDGE_BRIDGE_DB_H
#define KYBRIDGE_BRIDGE_DB_H

#include "containers.h"
#include "kybridge/ky_bridge.h"

extern "C" {

/// A rule's place in its region. Free, or held by one virtual port (ingress) or one bridge (egress).
typedef struct bridge_acl_offset {
    cl_pool_item_t pool_item; ///< in the region's offset_pool
    uint16_t offset;          ///< 1 to the region's size; given once, when the pool is built
} bridge_acl_offset_t;

/// One of the module's two ACL regions, with the ACL that stands on it.
typedef struct bridge_acl_region {
    uint32_t region_id;                              ///< the ACL manager's; rules are written to it
    uint32_t region_size;                            ///< rules; counts down while the pool is built
    uint32_t direction;                              ///< ky_acl_direction
    uint32_t acl_id;                                 ///< the ACL manager's; ports are bound to it
    kybridge::Pool<bridge_acl_offset_t> offset_pool; ///< region_size offsets, lowest first
} bridge_acl_region_t;

/// A pair of a logical port and a VLAN, attached to a bridge. It knows each use that it holds of what is shared,
/// and of its own rule; a removal drops what is held, and what is not held is nothing to do.
typedef struct bridge_db_virtual_port {
    cl_pool_item_t pool_item;            ///< in virtual_port_pool
    cl_map_item_t bridge_map_item;       ///< in its bridge's virtual_port_map, key log_port
    cl_map_item_t back_ref_map_item;     ///< in its logical port's back_ref_map, key vlan
    uint16_t bridge_id;                  ///< the bridge that owns it
    uint32_t log_port;                   ///< the logical port
    uint16_t vlan;                       ///< VLAN ID that ingress traffic carries
    bool holds_eacl_binding;             ///< a use of its port's egress binding, counted in eacl_bound_cnt
    bool holds_vlans;                    ///< uses of vlan and of its bridge's int_vlan, counted in vlan_ref_cnt
    uint32_t egress_mode;                ///< ky_egress_mode in the VLANs that the port joins
    bridge_acl_offset_t *ingress_offset; ///< its ingress rule, owned; nullptr: not written
    bridge_acl_offset_t *egress_offset;  ///< a use of its bridge's egress rule, borrowed; nullptr: none
} bridge_db_virtual_port_t;

/// A bridge: a forwarding domain with one internal VLAN.
typedef struct bridge_db_bridge {
    cl_pool_item_t pool_item;           ///< in bridge_pool
    cl_map_item_t map_item;             ///< in bridge_map, key bridge_id
    uint16_t bridge_id;                 ///< 1 to max_bridge_num; given once, when the pool is built
    uint16_t int_vlan;                  ///< the internal VLAN that it owns; 0: none
    uint32_t ref_cnt;                   ///< references of other SDK modules; it cannot be destroyed before 0
    uint32_t is_internal;               ///< non-zero: only lookups that pass a non-zero flag find it
    uint32_t egress_rule_ref_cnt;       ///< virtual ports that use its egress rule
    uint32_t acl_bound[2];              ///< by ky_acl_direction, 1: a user's ACL is bound to its VLAN group
    uint16_t vlan_group;                ///< KY_VLAN_GROUP_NONE: none
    bridge_acl_offset_t *egress_offset; ///< its one egress rule, owned; nullptr: not written
    kybridge::Map<bridge_db_virtual_port_t, &bridge_db_virtual_port_t::bridge_map_item>
        virtual_port_map;   ///< key log_port
    uint32_t learning_mode; ///< ky_fdb_learn_mode, or any other number that was set
} bridge_db_bridge_t;

/// An internal VLAN.
typedef struct bridge_db_int_vlan {
    cl_pool_item_t pool_item; ///< in int_vlan_pool
    cl_map_item_t map_item;   ///< in int_vlan_map, key int_vlan_id
    uint16_t int_vlan_id;     ///< VLAN ID, 1 to KY_VLAN_ID_MAX; given once, when the pool is built
    uint16_t bridge_id;       ///< the bridge that owns it; 0: free
} bridge_db_int_vlan_t;

enum { BRIDGE_DB_VLAN_REF_CNT_SIZE = 4097 }; ///< counters of a logical port, one byte each: VLAN ID 0 to 4096

/// A logical port that was announced in a switch partition.
typedef struct bridge_db_log_port {
    cl_pool_item_t pool_item;         ///< in log_port_pool
    cl_map_item_t map_item;           ///< in log_port_map, key log_port
    uint32_t log_port;                ///< the logical port
    uint8_t swid;                     ///< the switch partition
    uint32_t eacl_bound_cnt;          ///< virtual ports that hold a use of its egress binding
    bridge_acl_region_t *eacl_region; ///< the region whose ACL it is bound to for egress; nullptr: unbound.
                                      ///< With eacl_bound_cnt 0: bound without a use, as an undo was refused
    kybridge::Map<bridge_db_virtual_port_t, &bridge_db_virtual_port_t::back_ref_map_item> back_ref_map; ///< key vlan
    uint8_t *vlan_ref_cnt; ///< uses that keep the port in a VLAN, by VLAN ID; 0 to 2 each; owned
} bridge_db_log_port_t;

/// All state of the module. Obtained zero-filled at start-up.
struct bridge_db_record {
    uint32_t sdk_mode;                              ///< ky_bridge_sdk_mode
    uint32_t max_bridge_num;                        ///< bridges; size of the egress region
    uint32_t max_virtual_ports_num;                 ///< virtual ports; size of the ingress region
    uint32_t multiple_vlan_bridge_mode;             ///< ky_bridge_multiple_vlan_mode
    kybridge::Pool<bridge_db_bridge_t> bridge_pool; ///< max_bridge_num records
    kybridge::Map<bridge_db_bridge_t, &bridge_db_bridge_t::map_item> bridge_map; ///< key bridge_id
    kybridge::Pool<bridge_db_virtual_port_t> virtual_port_pool;                  ///< max_virtual_ports_num records
    kybridge::Pool<bridge_db_int_vlan_t> int_vlan_pool;                          ///< KY_VLAN_ID_MAX records
    kybridge::Map<bridge_db_int_vlan_t, &bridge_db_int_vlan_t::map_item> int_vlan_map; ///< key int_vlan_id
    kybridge::Pool<bridge_db_log_port_t> log_port_pool; ///< as many records as the device has logical ports
    kybridge::Map<bridge_db_log_port_t, &bridge_db_log_port_t::map_item> log_port_map; ///< key log_port
    bridge_acl_region_t ingress_region;                                                ///< one rule per virtual port
    bridge_acl_region_t egress_region;                                                 ///< one rule per bridge
};

/// Checks the sizes stored in bridge_db, then builds its pools and maps; nothing is built when a check fails.
/// @return 0, KY_STATUS_PARAM_EXCEEDS_RANGE (a size), KY_STATUS_PARAM_ERROR (multiple_vlan_bridge_mode)
KY_BRIDGE_API ky_status_t __bridge_db_init(void);
/// Destroys the pools of bridges, virtual ports, internal VLANs and logical ports. @return 0
KY_BRIDGE_API ky_status_t __bridge_db_deinit(void);

/// Takes a bridge from its pool and enters it in the map. @return 0 or KY_STATUS_NO_RESOURCES
KY_BRIDGE_API ky_status_t __bridge_db_alloc_bridge(uint32_t is_internal, bridge_db_bridge_t **bridge);
/// Finds a bridge; an internal one only when `is_internal` is non-zero. @return 0 or KY_STATUS_ENTRY_NOT_FOUND
KY_BRIDGE_API ky_status_t __bridge_db_get_bridge(uint16_t bridge_id, bridge_db_bridge_t **bridge, uint32_t is_internal);
/// Takes a bridge out of the map and puts it back into its pool; its VLAN and virtual ports go first. @return 0
KY_BRIDGE_API ky_status_t __bridge_db_free_bridge(bridge_db_bridge_t *bridge);

/// Gives a bridge an internal VLAN. @return 0 or KY_STATUS_NO_RESOURCES
KY_BRIDGE_API ky_status_t __bridge_db_alloc_int_vlan(bridge_db_bridge_t *bridge);
/// Finds an internal VLAN that a bridge owns. @return 0 or KY_STATUS_ENTRY_NOT_FOUND
KY_BRIDGE_API ky_status_t __bridge_db_get_int_vlan(uint16_t int_vlan_id, bridge_db_int_vlan_t **int_vlan);
/// Frees the internal VLAN whose ID stands at `int_vlan_id`, which is only read.
/// @return 0 or KY_STATUS_ENTRY_NOT_FOUND
KY_BRIDGE_API ky_status_t __bridge_db_free_int_vlan(const uint16_t *int_vlan_id);

/// Takes a virtual port from its pool and enters it in a bridge. @return 0 or KY_STATUS_NO_RESOURCES
KY_BRIDGE_API ky_status_t __bridge_db_alloc_virtual_port(bridge_db_bridge_t *bridge, uint32_t log_port, uint16_t vlan,
                                                         uint32_t egress_mode, bridge_db_virtual_port_t **vport);
/// Finds a bridge's virtual port by logical port and VLAN. @return 0 or KY_STATUS_ENTRY_NOT_FOUND
KY_BRIDGE_API ky_status_t __bridge_db_get_virtual_port_from_bridge(bridge_db_bridge_t *bridge, uint32_t log_port,
                                                                   uint16_t vlan, bridge_db_virtual_port_t **vport);
/// Takes a virtual port out of its bridge and puts it back into its pool. @return 0 or KY_STATUS_ENTRY_NOT_FOUND
KY_BRIDGE_API ky_status_t __bridge_db_free_virtual_port(bridge_db_virtual_port_t *vport, bridge_db_bridge_t *bridge);

/// Takes a logical port from its pool, with all VLAN counters 0, and enters it in the map.
/// @return 0, KY_STATUS_NO_RESOURCES, KY_STATUS_NO_MEMORY (no counters) or KY_STATUS_ENTRY_ALREADY_EXISTS
KY_BRIDGE_API ky_status_t __bridge_db_alloc_log_port(uint32_t log_port, uint8_t swid, bridge_db_log_port_t **record);
/// Finds a logical port. @return 0 or KY_STATUS_ENTRY_NOT_FOUND
KY_BRIDGE_API ky_status_t __bridge_db_get_log_port(uint32_t log_port, bridge_db_log_port_t **record);
/// Takes a logical port out of the map, frees its counters and puts it back into its pool.
/// @return 0 or KY_STATUS_ENTRY_NOT_FOUND
KY_BRIDGE_API ky_status_t __bridge_db_free_log_port(uint32_t log_port);

/// Enters a virtual port in its logical port's record, which it finds. @return 0 or KY_STATUS_ENTRY_NOT_FOUND
KY_BRIDGE_API ky_status_t __bridge_db_add_virtual_port_to_log_port_back_ref(bridge_db_virtual_port_t *vport,
                                                                            bridge_db_log_port_t **record);
/// Takes a virtual port out of its logical port's record. @return 0 or KY_STATUS_PARAM_ERROR: it was not in it
KY_BRIDGE_API ky_status_t __bridge_db_remove_virtual_port_to_log_port_back_ref(const bridge_db_virtual_port_t *vport,
                                                                               bridge_db_log_port_t *record);

/// Lists the internal VLANs in use, ascending; more than `*vid_num` are left out.
/// @param[out] vid room for `*vid_num` IDs @param[in,out] vid_num capacity; out: IDs written
/// @return 0, or KY_STATUS_ERROR when the map's walk and count disagree
KY_BRIDGE_API ky_status_t __bridge_db_get_int_vlan_list(uint16_t *vid, uint32_t *vid_num);
/// Lists the internal VLANs of a port's bridges in ascending order of the port's VLANs.
/// @param log_port the logical port
/// @param[out] vid room for `*vid_num` IDs @param[in,out] vid_num capacity; out: IDs written
/// @return 0 or KY_STATUS_ENTRY_NOT_FOUND
KY_BRIDGE_API ky_status_t __bridge_db_get_port_int_vlan_list(uint32_t log_port, uint16_t *vid, uint32_t *vid_num);

// Initialisers of the pools, in complib's form.

/// Numbers the bridges downwards, so that the lowest number is handed out first.
KY_BRIDGE_API cl_status_t __bridge_db_bridge_pool_init(void *object, void *context, cl_pool_item_t **pool_item);
/// Finds a virtual port's pool item.
KY_BRIDGE_API cl_status_t __bridge_db_bridge_virtual_port_pool_init(void *object, void *context,
                                                                    cl_pool_item_t **pool_item);
/// Numbers the internal VLANs downwards, so that the lowest number is handed out first.
KY_BRIDGE_API cl_status_t __bridge_db_bridge_internal_vlan_pool_init(void *object, void *context,
                                                                     cl_pool_item_t **pool_item);
/// Finds a logical port's pool item.
KY_BRIDGE_API cl_status_t __bridge_db_bridge_log_port_pool_init(void *object, void *context,
                                                                cl_pool_item_t **pool_item);

} // extern "C"

namespace [[gnu::visibility("hidden")]] kybridge {

/// Whether there is no database; then also writes the debug line that says so, in the caller's name.
bool database_is_missing(const char *file = __builtin_FILE(), int line = __builtin_LINE(),
                         const char *function = __builtin_FUNCTION());

} // namespace kybridge

#endif
