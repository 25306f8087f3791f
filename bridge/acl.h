/// @file
/// The module's two ACL regions: creating them, writing the rules that map virtual ports onto their
/// bridge's internal VLAN and back, and binding ports to their ACLs.
#ifndef KYBRIDGE_BRIDGE_ACL_H
#define KYBRIDGE_BRIDGE_ACL_H

#include "db.h"

extern "C" {

// ---- Regions (acl_region.cpp) ----------------------------------------------------------------------

/// Creates a region with an ACL on it and the pool of its offsets, and fills the descriptor.
/// @param[out] region the descriptor @param size rules @param direction ky_acl_direction
/// @return 0, the ACL manager's status, or KY_STATUS_ERROR when the pool could not be built
KY_BRIDGE_API ky_status_t __allocate_region(bridge_acl_region_t *region, uint32_t size, uint32_t direction);
/// Releases what __allocate_region made; a refusal leaves descriptor and pool as they are.
/// @return 0 or the ACL manager's status
KY_BRIDGE_API ky_status_t __deallocate_region(bridge_acl_region_t *region, uint32_t size, uint32_t direction);
/// Creates egress_region, one rule per bridge.
/// @return as __allocate_region, or KY_STATUS_PARAM_ERROR outside the homogenous mode
KY_BRIDGE_API ky_status_t __allocate_egress_regions(void);
/// Releases egress_region. @return as __deallocate_region, or KY_STATUS_PARAM_ERROR outside the homogenous mode
KY_BRIDGE_API ky_status_t __deallocate_egress_regions(void);
/// Numbers the offsets of a region downwards from its size; `context` is the region's descriptor.
KY_BRIDGE_API cl_status_t __bridge_offset_pool_init(void *object, void *context, cl_pool_item_t **pool_item);

// ---- Ingress rules (acl_ingress.cpp) ---------------------------------------------------------------

/// Writes a virtual port's ingress rule, at a fresh offset or again at the one that it holds.
/// @return 0, KY_STATUS_NO_RESOURCES (no offset is free) or the ACL manager's status
KY_BRIDGE_API ky_status_t __bridge_create_or_update_ingress_acl_rule(bridge_db_bridge_t *bridge,
                                                                     bridge_db_virtual_port_t *vport);
/// Deletes a virtual port's ingress rule and frees its offset; nothing to do where there is none.
/// @return 0, or the ACL manager's status: the rule then stays
KY_BRIDGE_API ky_status_t __bridge_remove_ingress_acl_rule(bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport);

// ---- Egress rules (acl_egress.cpp) -----------------------------------------------------------------

/// Takes a use of a port's binding to the region's ACL; the first binds it, unless it is bound without a use.
/// @return 0 or the ACL manager's status
KY_BRIDGE_API ky_status_t __bridge_bind_port_eacl(bridge_acl_region_t *region, bridge_db_log_port_t *log_port);
/// Drops a use of a port's binding to the region's ACL; the last unbinds it.
/// @return 0, KY_STATUS_PARAM_ERROR (there was no use) or the status of the unbinding
KY_BRIDGE_API ky_status_t __bridge_unbind_port_eacl(bridge_acl_region_t *region, bridge_db_log_port_t *log_port);
/// Writes a bridge's egress rule, at a fresh offset or again at the one that the virtual port uses.
/// @return 0, KY_STATUS_NO_RESOURCES (no offset is free) or the ACL manager's status
KY_BRIDGE_API ky_status_t __bridge_create_or_update_egress_acl_rule(bridge_db_bridge_t *bridge,
                                                                    bridge_db_virtual_port_t *vport);
/// Takes a virtual port's use of its bridge's egress rule; the first writes it. @return as the writing
KY_BRIDGE_API ky_status_t __bridge_create_homogenous_egress_acl_rule(bridge_db_bridge_t *bridge,
                                                                     bridge_db_virtual_port_t *vport);
/// Drops a virtual port's use of its bridge's egress rule; the last deletes it and frees the offset even
/// when the ACL manager refuses. Nothing to do for a virtual port that holds no use.
/// @return 0 or the ACL manager's status
KY_BRIDGE_API ky_status_t __bridge_remove_homogenous_egress_acl_rule(bridge_db_bridge_t *bridge,
                                                                     bridge_db_virtual_port_t *vport);
/// The egress side of a virtual port: a use of its bridge's rule and one of its port's binding.
/// @return 0, KY_STATUS_ENTRY_NOT_FOUND (the port is not known), KY_STATUS_PARAM_ERROR (not the homogenous
///         mode), or the failed step's status
KY_BRIDGE_API ky_status_t __bridge_create_egress_acl_rule(bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport);
/// Gives up what a virtual port holds of its egress side, in reverse. @return as __bridge_create_egress_acl_rule
KY_BRIDGE_API ky_status_t __bridge_remove_egress_acl_rule(bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport);

// ---- Port binding (acl_binding.cpp) ----------------------------------------------------------------

/// Binds a logical port to an ACL in a direction. @return 0 or the ACL manager's status
KY_BRIDGE_API ky_status_t __bridge_bind_port_to_acl(uint32_t log_port, uint32_t acl_id, uint32_t direction);
/// Unbinds a logical port from an ACL in a direction; a port that is bound to none counts as done.
/// @return 0, KY_STATUS_PARAM_ERROR (bound to another ACL, and left so) or the ACL manager's status
KY_BRIDGE_API ky_status_t __bridge_unbind_port_from_acl(uint32_t log_port, uint32_t acl_id, uint32_t direction);

} // extern "C"

namespace [[gnu::visibility("hidden")]] kybridge {

/// Whether all virtual ports of a bridge use one VLAN, so that one egress rule serves it. The module
/// starts in no other mode; otherwise also logs the error that says so.
bool is_homogenous_mode();

} // namespace kybridge

#endif
