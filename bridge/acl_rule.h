/// @file
/// What ingress and egress rules have in common: the record that is sent, and the offset that they take.
#ifndef KYBRIDGE_BRIDGE_ACL_RULE_H
#define KYBRIDGE_BRIDGE_ACL_RULE_H

#include "db.h"

namespace [[gnu::visibility("hidden")]] kybridge {

/// Fills the record that writes a rule of a bridge: frames of VLAN `key_vlan` on any port are given the
/// VLAN `new_vlan`, and are learned as the bridge's mode has it. The offset is left to the caller.
void fill_rule(ky_acl_rules_params_t &rule, const bridge_acl_region_t &region, const bridge_db_bridge_t &bridge,
               uint16_t key_vlan, uint16_t new_vlan);

/// Sends the deletion of the rule at an offset. @return 0 or the ACL manager's status
ky_status_t delete_rule(const bridge_acl_region_t &region, const bridge_acl_offset_t &offset);

/// Takes a free offset of a region into `held`. @return false, logged, when every offset is in use
bool take_offset(bridge_acl_region_t &region, bridge_acl_offset_t *&held);
/// Gives the offset in `held` back to its region; it is the next one taken.
void put_offset(bridge_acl_region_t &region, bridge_acl_offset_t *&held);

} // namespace kybridge

#endif
