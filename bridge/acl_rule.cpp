#include "acl_rule.h"

#include "log.h"

namespace kybridge {

void fill_rule(ky_acl_rules_params_t &rule, const bridge_acl_region_t &region, const bridge_db_bridge_t &bridge,
               uint16_t key_vlan, uint16_t new_vlan)
{
    rule = {};
    rule.cmd = KY_ACCESS_CMD_SET;
    rule.region_id = region.region_id;
    rule.rule_count = 1;
    rule.valid = 1;
    rule.key.key_type = KY_ACL_KEY_TYPE_BRIDGE;
    rule.key.vlan = key_vlan;
    rule.mask.key_type = KY_ACL_KEY_TYPE_BRIDGE;
    rule.mask.vlan = 0xFFFF;
    rule.action_selector = KY_ACL_ACTION_SET_VLAN_AND_LEARN;
    rule.new_vlan = new_vlan;
    rule.reserved_140 = 0xFFFFFFFF;
    rule.dont_learn = bridge.learning_mode == KY_FDB_LEARN_MODE_DONT_LEARN ? 1 : 0;
}

ky_status_t delete_rule(const bridge_acl_region_t &region, const bridge_acl_offset_t &offset)
{
    ky_acl_rules_params_t rule = {};
    rule.cmd = KY_ACCESS_CMD_DELETE;
    rule.region_id = region.region_id;
    rule.rule_count = 1;
    rule.offset = offset.offset;
    rule.reserved_140 = 0xFFFFFFFF;
    return acl_rules_set(&rule);
}

bool take_offset(bridge_acl_region_t &region, bridge_acl_offset_t *&held)
{
    held = region.offset_pool.take();
    if (held == nullptr)
        LOG_ERROR("Could not find available_offset within ACL region.\n");
    return held != nullptr;
}

void put_offset(bridge_acl_region_t &region, bridge_acl_offset_t *&held)
{
    region.offset_pool.put(held);
    held = nullptr;
}

} // namespace kybridge
