// The ACL manager: regions, ACLs, rules, port bindings and VLAN groups.
#include "sdk/recorder.h"

#include <algorithm>
#include <limits>

namespace sdk {

std::string_view name(Direction direction)
{
    return direction == Direction::ingress ? "ingress" : "egress";
}

const Region *AclManager::region_of(std::uint32_t log_port, Direction direction) const
{
    const auto binding = bindings.find({log_port, direction});
    if (binding == bindings.end())
        return nullptr;
    const auto acl = acls.find(binding->second.acl_id);
    if (acl == acls.end())
        return nullptr;
    const auto region = regions.find(acl->second.region_id);
    return region == regions.end() ? nullptr : &region->second;
}

namespace {

AclManager &manager()
{
    return device().acl;
}

// ---- Regions and ACLs -----------------------------------------------------------------------------

ky_status_t create_region(Recorder &call, ky_acl_region_params_t &sent)
{
    ky_acl_region_params_t expected{};
    expected.cmd = KY_ACCESS_CMD_CREATE;
    expected.key_type = KY_ACL_KEY_TYPE_BRIDGE;
    expected.region_size = sent.region_size;
    if (!call.same(sent, expected))
        return KY_STATUS_PARAM_ERROR;
    if (sent.region_size < 1 || sent.region_size > std::numeric_limits<std::uint16_t>::max())
        return call.refuse(KY_STATUS_PARAM_EXCEEDS_RANGE, "region size {} is outside 1..65535", sent.region_size);
    sent.region_id = manager().next_region_id++;
    manager().regions[sent.region_id] = {.size = sent.region_size, .rules = {}, .call = call.number()};
    return KY_STATUS_SUCCESS;
}

ky_status_t destroy_region(Recorder &call, const ky_acl_region_params_t &sent)
{
    const auto region = manager().regions.find(sent.region_id);
    if (region == manager().regions.end())
        return call.refuse(KY_STATUS_ENTRY_NOT_FOUND, "region {} is unknown", sent.region_id);
    ky_acl_region_params_t expected{};
    expected.cmd = KY_ACCESS_CMD_DESTROY;
    expected.key_type = KY_ACL_KEY_TYPE_BRIDGE;
    expected.region_size = region->second.size;
    expected.region_id = sent.region_id;
    if (!call.same(sent, expected))
        return KY_STATUS_PARAM_ERROR;
    for (const auto &[acl_id, acl] : manager().acls)
        if (acl.region_id == sent.region_id)
            return call.refuse(KY_STATUS_RESOURCE_IN_USE, "region {} still carries ACL {}", sent.region_id, acl_id);
    if (!region->second.rules.empty()) {
        return call.refuse(KY_STATUS_RESOURCE_IN_USE, "region {} still holds {} rules", sent.region_id,
                           region->second.rules.size());
    }
    manager().regions.erase(region);
    return KY_STATUS_SUCCESS;
}

ky_status_t create_acl(Recorder &call, ky_acl_params_t &sent)
{
    ky_acl_params_t expected{};
    expected.cmd = KY_ACCESS_CMD_CREATE;
    expected.direction = sent.direction;
    expected.region_id = sent.region_id;
    if (!call.same(sent, expected))
        return KY_STATUS_PARAM_ERROR;
    if (sent.direction > KY_ACL_DIRECTION_EGRESS)
        return call.refuse(KY_STATUS_PARAM_EXCEEDS_RANGE, "direction {} is above 1", sent.direction);
    if (!manager().regions.contains(sent.region_id))
        return call.refuse(KY_STATUS_ENTRY_NOT_FOUND, "region {} is unknown", sent.region_id);
    for (const auto &[acl_id, acl] : manager().acls)
        if (acl.region_id == sent.region_id)
            return call.refuse(KY_STATUS_RESOURCE_IN_USE, "region {} carries ACL {} already", sent.region_id, acl_id);
    sent.acl_id = manager().next_acl_id++;
    manager().acls[sent.acl_id] = {static_cast<Direction>(sent.direction), sent.region_id, call.number()};
    return KY_STATUS_SUCCESS;
}

ky_status_t destroy_acl(Recorder &call, const ky_acl_params_t &sent)
{
    const auto acl = manager().acls.find(sent.acl_id);
    if (acl == manager().acls.end())
        return call.refuse(KY_STATUS_ENTRY_NOT_FOUND, "ACL {} is unknown", sent.acl_id);
    ky_acl_params_t expected{};
    expected.cmd = KY_ACCESS_CMD_DESTROY;
    expected.acl_id = sent.acl_id;
    expected.direction = static_cast<std::uint32_t>(acl->second.direction);
    expected.region_id = acl->second.region_id;
    if (!call.same(sent, expected))
        return KY_STATUS_PARAM_ERROR;
    for (const auto &[bound, binding] : manager().bindings) {
        if (binding.acl_id == sent.acl_id) {
            return call.refuse(KY_STATUS_RESOURCE_IN_USE, "port 0x{:08X} is still bound to ACL {}", bound.first,
                               sent.acl_id);
        }
    }
    manager().acls.erase(acl);
    return KY_STATUS_SUCCESS;
}

// ---- Rules ----------------------------------------------------------------------------------------

/// A rule record with all that does not depend on the rule.
ky_acl_rules_params_t expected_rule(const ky_acl_rules_params_t &sent)
{
    ky_acl_rules_params_t expected{};
    expected.cmd = sent.cmd;
    expected.region_id = sent.region_id;
    expected.rule_count = 1;
    expected.offset = sent.offset;
    expected.reserved_140 = 0xFFFFFFFF;
    return expected;
}

ky_status_t write_rule(Recorder &call, Region &region, const ky_acl_rules_params_t &sent)
{
    ky_acl_rules_params_t expected = expected_rule(sent);
    expected.valid = 1;
    expected.key.key_type = KY_ACL_KEY_TYPE_BRIDGE;
    expected.key.vlan = sent.key.vlan;
    expected.mask.key_type = KY_ACL_KEY_TYPE_BRIDGE;
    expected.mask.vlan = 0xFFFF;
    if (sent.mask.log_port != 0) {
        expected.key.log_port = sent.key.log_port;
        expected.mask.log_port = 0xFFFFFFFF;
    }
    expected.action_selector = KY_ACL_ACTION_SET_VLAN_AND_LEARN;
    expected.new_vlan = sent.new_vlan;
    expected.dont_learn = sent.dont_learn != 0;
    if (!call.same(sent, expected))
        return KY_STATUS_PARAM_ERROR;
    if (sent.key.vlan > KY_VLAN_ID_MAX || sent.new_vlan > KY_VLAN_ID_MAX) {
        return call.refuse(KY_STATUS_PARAM_EXCEEDS_RANGE, "key VLAN {} or new VLAN {} is above {}", sent.key.vlan,
                           sent.new_vlan, +KY_VLAN_ID_MAX);
    }
    region.rules.write(sent.offset, {.key_log_port = sent.key.log_port,
                                     .log_port_mask = sent.mask.log_port,
                                     .key_vlan = sent.key.vlan,
                                     .vlan_mask = sent.mask.vlan,
                                     .new_vlan = sent.new_vlan,
                                     .dont_learn = sent.dont_learn != 0,
                                     .call = call.number()});
    return KY_STATUS_SUCCESS;
}

ky_status_t delete_rule(Recorder &call, Region &region, const ky_acl_rules_params_t &sent)
{
    if (!call.same(sent, expected_rule(sent)))
        return KY_STATUS_PARAM_ERROR;
    if (!region.rules.erase(sent.offset)) {
        return call.refuse(KY_STATUS_ENTRY_NOT_FOUND, "offset {} of region {} holds no rule", sent.offset,
                           sent.region_id);
    }
    return KY_STATUS_SUCCESS;
}

// ---- Bindings -------------------------------------------------------------------------------------

/// Checks what the three binding calls share. @return KY_STATUS_SUCCESS, or the refusal
ky_status_t check_binding(Recorder &call, const ky_acl_bind_params_t &sent, ky_access_cmd_t cmd)
{
    if (sent.cmd != cmd)
        return call.refuse_cmd(sent.cmd);
    if (sent.direction > KY_ACL_DIRECTION_EGRESS)
        return call.refuse(KY_STATUS_PARAM_EXCEEDS_RANGE, "direction {} is above 1", sent.direction);
    return KY_STATUS_SUCCESS;
}

ky_status_t bind(Recorder &call, const ky_acl_bind_params_t &sent)
{
    if (const ky_status_t status = check_binding(call, sent, KY_ACCESS_CMD_BIND))
        return status;
    const auto acl = manager().acls.find(sent.acl_id);
    if (acl == manager().acls.end())
        return call.refuse(KY_STATUS_ENTRY_NOT_FOUND, "ACL {} is unknown", sent.acl_id);
    const auto direction = static_cast<Direction>(sent.direction);
    if (acl->second.direction != direction)
        return call.refuse(KY_STATUS_PARAM_ERROR, "ACL {} is an {} ACL", sent.acl_id, name(acl->second.direction));
    if (device().ports.find(sent.log_port) == nullptr)
        return KY_STATUS_ENTRY_NOT_FOUND;
    const auto [binding, fresh] =
        manager().bindings.try_emplace({sent.log_port, direction}, Binding{sent.acl_id, call.number()});
    if (!fresh) {
        return call.refuse(KY_STATUS_ENTRY_ALREADY_BOUND, "port 0x{:08X} is bound to ACL {} already ({})",
                           sent.log_port, binding->second.acl_id, name(direction));
    }
    return KY_STATUS_SUCCESS;
}

ky_status_t read_binding(Recorder &call, ky_acl_bind_params_t &sent)
{
    if (const ky_status_t status = check_binding(call, sent, KY_ACCESS_CMD_GET))
        return status;
    if (sent.acl_id != 0)
        return call.refuse(KY_STATUS_PARAM_ERROR, "ACL {} passed, expected 0", sent.acl_id);
    const auto binding = manager().bindings.find({sent.log_port, static_cast<Direction>(sent.direction)});
    if (binding == manager().bindings.end())
        return KY_STATUS_ENTRY_NOT_FOUND;
    sent.acl_id = binding->second.acl_id;
    return KY_STATUS_SUCCESS;
}

ky_status_t unbind(Recorder &call, const ky_acl_bind_params_t &sent)
{
    if (const ky_status_t status = check_binding(call, sent, KY_ACCESS_CMD_UNBIND))
        return status;
    const auto direction = static_cast<Direction>(sent.direction);
    const auto binding = manager().bindings.find({sent.log_port, direction});
    if (binding == manager().bindings.end() || binding->second.acl_id != sent.acl_id) {
        return call.refuse(KY_STATUS_ENTRY_NOT_BOUND, "port 0x{:08X} is not bound to ACL {} ({})", sent.log_port,
                           sent.acl_id, name(direction));
    }
    manager().bindings.erase(binding);
    return KY_STATUS_SUCCESS;
}

// ---- VLAN groups ----------------------------------------------------------------------------------

ky_status_t create_group(Recorder &call, ky_acl_vlan_group_params_t &sent)
{
    ky_acl_vlan_group_params_t expected{};
    expected.cmd = KY_ACCESS_CMD_CREATE;
    if (!call.same(sent, expected))
        return KY_STATUS_PARAM_ERROR;
    if (*ky_acl_vlan_group_list(&sent) != 0) {
        return call.refuse(KY_STATUS_PARAM_ERROR, "VLAN {} passed to CREATE, expected 0",
                           *ky_acl_vlan_group_list(&sent));
    }
    auto &groups = manager().vlan_groups;
    if (groups.size() == KY_VLAN_GROUP_NONE - 1)
        return KY_STATUS_NO_RESOURCES;
    std::uint16_t &next = manager().next_vlan_group;
    const auto take = [&next] {
        const std::uint16_t id = next;
        next = id + 1 == KY_VLAN_GROUP_NONE ? std::uint16_t{1} : static_cast<std::uint16_t>(id + 1);
        return id;
    };
    do {
        sent.vlan_group = take();
    } while (groups.contains(sent.vlan_group));
    groups[sent.vlan_group].call = call.number();
    return KY_STATUS_SUCCESS;
}

ky_status_t change_group(Recorder &call, ky_acl_vlan_group_params_t &sent)
{
    ky_acl_vlan_group_params_t expected{};
    expected.cmd = sent.cmd;
    expected.vlan_group = sent.vlan_group;
    expected.vlan_count = 1;
    if (!call.same(sent, expected))
        return KY_STATUS_PARAM_ERROR;
    const auto group = manager().vlan_groups.find(sent.vlan_group);
    if (group == manager().vlan_groups.end())
        return call.refuse(KY_STATUS_ENTRY_NOT_FOUND, "VLAN group {} is unknown", sent.vlan_group);
    std::set<std::uint16_t> &vlans = group->second.vlans;
    if (sent.cmd == KY_ACCESS_CMD_DESTROY) {
        if (!vlans.empty()) {
            return call.refuse(KY_STATUS_RESOURCE_IN_USE, "VLAN group {} still holds VLAN {}", sent.vlan_group,
                               *vlans.begin());
        }
        manager().vlan_groups.erase(group);
        return KY_STATUS_SUCCESS;
    }
    const std::uint16_t vlan = *ky_acl_vlan_group_list(&sent);
    if (vlan < 1 || vlan > KY_VLAN_ID_MAX)
        return call.refuse(KY_STATUS_PARAM_EXCEEDS_RANGE, "VLAN {} is outside 1..{}", vlan, +KY_VLAN_ID_MAX);
    if (sent.cmd == KY_ACCESS_CMD_ADD && !vlans.insert(vlan).second) {
        return call.refuse(KY_STATUS_ENTRY_ALREADY_EXISTS, "VLAN group {} holds VLAN {} already", sent.vlan_group,
                           vlan);
    }
    if (sent.cmd == KY_ACCESS_CMD_DELETE && vlans.erase(vlan) == 0)
        return call.refuse(KY_STATUS_ENTRY_NOT_FOUND, "VLAN group {} does not hold VLAN {}", sent.vlan_group, vlan);
    return KY_STATUS_SUCCESS;
}

} // namespace
} // namespace sdk

using sdk::Recorder;
using sdk::serve_record;
using sdk::Service;

ky_status_t acl_region_set(ky_acl_region_params_t *region, uint32_t arg1, uint32_t arg2, uint32_t arg3)
{
    const auto set = [=](Recorder &call, ky_acl_region_params_t &sent) {
        if (arg1 != 4 || arg2 != 0 || arg3 != 0)
            return call.refuse(KY_STATUS_PARAM_ERROR, "arguments {}, {}, {} passed, expected 4, 0, 0", arg1, arg2,
                               arg3);
        switch (sent.cmd) {
        case KY_ACCESS_CMD_CREATE:
            return sdk::create_region(call, sent);
        case KY_ACCESS_CMD_DESTROY:
            return sdk::destroy_region(call, sent);
        default:
            return call.refuse_cmd(sent.cmd);
        }
    };
    return serve_record(Service::acl_region_set, {arg1, arg2, arg3}, region, set);
}

ky_status_t acl_set(ky_acl_params_t *acl)
{
    const auto set = [](Recorder &call, ky_acl_params_t &sent) {
        switch (sent.cmd) {
        case KY_ACCESS_CMD_CREATE:
            return sdk::create_acl(call, sent);
        case KY_ACCESS_CMD_DESTROY:
            return sdk::destroy_acl(call, sent);
        default:
            return call.refuse_cmd(sent.cmd);
        }
    };
    return serve_record(Service::acl_set, {}, acl, set);
}

ky_status_t acl_rules_set(ky_acl_rules_params_t *rules)
{
    const auto set = [](Recorder &call, const ky_acl_rules_params_t &sent) {
        if (sent.cmd != KY_ACCESS_CMD_SET && sent.cmd != KY_ACCESS_CMD_DELETE)
            return call.refuse_cmd(sent.cmd);
        const auto region = sdk::manager().regions.find(sent.region_id);
        if (region == sdk::manager().regions.end())
            return call.refuse(KY_STATUS_ENTRY_NOT_FOUND, "region {} is unknown", sent.region_id);
        if (sent.offset < 1 || sent.offset > region->second.size)
            return call.refuse(KY_STATUS_PARAM_EXCEEDS_RANGE, "offset {} is outside 1..{} of region {}", sent.offset,
                               region->second.size, sent.region_id);
        return sent.cmd == KY_ACCESS_CMD_SET ? sdk::write_rule(call, region->second, sent)
                                             : sdk::delete_rule(call, region->second, sent);
    };
    return serve_record(Service::acl_rules_set, {}, rules, set);
}

ky_status_t acl_bind_port(ky_acl_bind_params_t *binding)
{
    return serve_record(Service::acl_bind_port, {}, binding, sdk::bind);
}

ky_status_t acl_bind_port_get(ky_acl_bind_params_t *binding)
{
    return serve_record(Service::acl_bind_port_get, {}, binding, sdk::read_binding);
}

ky_status_t acl_unbind_port(ky_acl_bind_params_t *binding)
{
    return serve_record(Service::acl_unbind_port, {}, binding, sdk::unbind);
}

ky_status_t acl_vlan_group_set(ky_acl_vlan_group_params_t *group)
{
    const auto set = [](Recorder &call, ky_acl_vlan_group_params_t &sent) {
        switch (sent.cmd) {
        case KY_ACCESS_CMD_CREATE:
            return sdk::create_group(call, sent);
        case KY_ACCESS_CMD_ADD:
        case KY_ACCESS_CMD_DELETE:
        case KY_ACCESS_CMD_DESTROY:
            return sdk::change_group(call, sent);
        default:
            return call.refuse_cmd(sent.cmd);
        }
    };
    return serve_record(Service::acl_vlan_group_set, {}, group, set, sizeof *group + sizeof(uint16_t));
}
