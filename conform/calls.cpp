#include "conform/calls.h"

#include <iterator>

#include <fmt/ranges.h>

#include "conform/check.h"
#include "conform/edge.h"
#include "record/calls.h"

namespace conform {

namespace {

const char *direction_name(std::uint32_t direction)
{
    return direction == KY_ACL_DIRECTION_INGRESS ? "ingress" : "egress";
}

/// Fails the check if a service wrote more of its record than the identifier. @param expected with the identifier
template <typename Record> void expect_only_id_written(const Record &actual, const Record &expected)
{
    expect(std::memcmp(&actual, &expected, sizeof actual) == 0, "other fields of the record were changed",
           "the identifier alone is written");
}

ky_status_t send_region(ky_acl_region_params_t &record)
{
    const auto service = PROCESS_SYMBOL(acl_region_set);
    return with_record_at_edge(&record, 1, [=](ky_acl_region_params_t *region) { return service(region, 4, 0, 0); });
}

ky_status_t send_acl(ky_acl_params_t &record)
{
    return with_record_at_edge(&record, 1, PROCESS_SYMBOL(acl_set));
}

/// The part of a rule record that every rule has.
ky_acl_rules_params_t rule_record(ky_access_cmd_t cmd, std::uint32_t region, std::uint16_t offset)
{
    ky_acl_rules_params_t record = {};
    record.cmd = cmd;
    record.region_id = region;
    record.rule_count = 1;
    record.offset = offset;
    record.reserved_140 = 0xFFFFFFFF;
    return record;
}

ky_acl_rules_params_t rule_to_write(std::uint32_t region, std::uint16_t offset, std::uint16_t vlan,
                                    std::uint16_t new_vlan)
{
    ky_acl_rules_params_t record = rule_record(KY_ACCESS_CMD_SET, region, offset);
    record.valid = 1;
    record.key.key_type = KY_ACL_KEY_TYPE_BRIDGE;
    record.key.vlan = vlan;
    record.mask.key_type = KY_ACL_KEY_TYPE_BRIDGE;
    record.mask.vlan = 0xFFFF;
    record.action_selector = KY_ACL_ACTION_SET_VLAN_AND_LEARN;
    record.new_vlan = new_vlan;
    record.dont_learn = 1;
    return record;
}

ky_status_t send_rule(ky_acl_rules_params_t &record)
{
    return with_record_at_edge(&record, 1, PROCESS_SYMBOL(acl_rules_set));
}

template <typename Service>
ky_status_t send_binding(const char *name, const char *cmd, Service service, ky_acl_bind_params_t &record)
{
    calling(fmt::format("{}({}, ACL {}, {}, port 0x{:08X})", name, cmd, record.acl_id, direction_name(record.direction),
                        record.log_port));
    return with_record_at_edge(&record, 1, service);
}

/// The record of a VLAN group, as the module sends it: a header and room for one VLAN ID, 14 bytes in all. Here it is
/// longer by what its alignment takes.
struct GroupRecord {
    ky_acl_vlan_group_params_t header;
    std::uint16_t vlan;
    std::uint16_t behind;
};

ky_status_t send_group(GroupRecord &record)
{
    const auto service = PROCESS_SYMBOL(acl_vlan_group_set);
    auto *const copy = static_cast<ky_acl_vlan_group_params_t *>(
        to_edge(&record, offsetof(GroupRecord, behind), alignof(GroupRecord)));
    const ky_status_t status = service(copy);
    expect_edge_intact();
    std::memcpy(&record, copy, offsetof(GroupRecord, behind));
    return status;
}

/// Reads one number of something through a pointer. The place for it is as the module has it before: zero.
template <typename Number, typename Service>
Answered read_number(const char *name, std::uint32_t of, Service service, Number zero = {})
{
    calling(fmt::format("{}(GET, 0x{:X}, ...)", name, of));
    const ky_status_t status = with_record_at_edge(&zero, 1, service);
    return {status, zero};
}

} // namespace

std::vector<std::string> service_names()
{
    std::vector<std::string> names(std::begin(record::service_names), std::end(record::service_names));
    std::erase_if(names, [](const std::string &name) { return !record::is_supplied_by_name(name); });
    names.insert(names.end(), {"ky_log", "rm_resource_global"});
    return names;
}

Answered create_region(std::uint32_t size)
{
    calling(fmt::format("acl_region_set(CREATE, key type 5, {} rules; 4, 0, 0)", size));
    ky_acl_region_params_t expected = {KY_ACCESS_CMD_CREATE, KY_ACL_KEY_TYPE_BRIDGE, 0, size, 0};
    ky_acl_region_params_t record = expected;
    const ky_status_t status = send_region(record);
    if (status == KY_STATUS_SUCCESS) {
        expected.region_id = record.region_id;
        expect_only_id_written(record, expected);
    }
    return {status, record.region_id};
}

ky_status_t destroy_region(std::uint32_t region, std::uint32_t size)
{
    calling(fmt::format("acl_region_set(DESTROY, region {} of {} rules; 4, 0, 0)", region, size));
    ky_acl_region_params_t record = {KY_ACCESS_CMD_DESTROY, KY_ACL_KEY_TYPE_BRIDGE, 0, size, region};
    return send_region(record);
}

Answered create_acl(std::uint32_t region, std::uint32_t direction)
{
    calling(fmt::format("acl_set(CREATE, {}, region {})", direction_name(direction), region));
    ky_acl_params_t expected = {KY_ACCESS_CMD_CREATE, 0, 0, direction, 0, region, {}};
    ky_acl_params_t record = expected;
    const ky_status_t status = send_acl(record);
    if (status == KY_STATUS_SUCCESS) {
        expected.acl_id = record.acl_id;
        expect_only_id_written(record, expected);
    }
    return {status, record.acl_id};
}

ky_status_t destroy_acl(std::uint32_t acl, std::uint32_t region, std::uint32_t direction)
{
    calling(fmt::format("acl_set(DESTROY, ACL {}, {}, region {})", acl, direction_name(direction), region));
    ky_acl_params_t record = {KY_ACCESS_CMD_DESTROY, acl, 0, direction, 0, region, {}};
    return send_acl(record);
}

ky_status_t write_rule(std::uint32_t region, std::uint16_t offset, std::uint32_t port, std::uint16_t vlan,
                       std::uint16_t new_vlan, bool dont_learn)
{
    calling(fmt::format("acl_rules_set(SET, region {}, offset {}: port 0x{:08X} vlan {} -> vlan {}{})", region, offset,
                        port, vlan, new_vlan, dont_learn ? ", don't learn" : ""));
    ky_acl_rules_params_t record = rule_to_write(region, offset, vlan, new_vlan);
    record.key.log_port = port;
    record.mask.log_port = 0xFFFFFFFF;
    record.dont_learn = dont_learn ? 1 : 0;
    return send_rule(record);
}

ky_status_t write_egress_rule(std::uint32_t region, std::uint16_t offset, std::uint16_t vlan, std::uint16_t new_vlan)
{
    calling(fmt::format("acl_rules_set(SET, region {}, offset {}: any port, vlan {} -> vlan {})", region, offset, vlan,
                        new_vlan));
    ky_acl_rules_params_t record = rule_to_write(region, offset, vlan, new_vlan);
    return send_rule(record);
}

ky_status_t delete_rule(std::uint32_t region, std::uint16_t offset)
{
    calling(fmt::format("acl_rules_set(DELETE, region {}, offset {})", region, offset));
    ky_acl_rules_params_t record = rule_record(KY_ACCESS_CMD_DELETE, region, offset);
    return send_rule(record);
}

ky_status_t bind_port(std::uint32_t acl, std::uint32_t direction, std::uint32_t port)
{
    ky_acl_bind_params_t record = {KY_ACCESS_CMD_BIND, acl, direction, port};
    return send_binding("acl_bind_port", "BIND", PROCESS_SYMBOL(acl_bind_port), record);
}

ky_status_t unbind_port(std::uint32_t acl, std::uint32_t direction, std::uint32_t port)
{
    ky_acl_bind_params_t record = {KY_ACCESS_CMD_UNBIND, acl, direction, port};
    return send_binding("acl_unbind_port", "UNBIND", PROCESS_SYMBOL(acl_unbind_port), record);
}

Answered read_binding(std::uint32_t direction, std::uint32_t port)
{
    ky_acl_bind_params_t expected = {KY_ACCESS_CMD_GET, 0, direction, port};
    ky_acl_bind_params_t record = expected;
    const ky_status_t status = send_binding("acl_bind_port_get", "GET", PROCESS_SYMBOL(acl_bind_port_get), record);
    if (status == KY_STATUS_SUCCESS) { // the module sends the rest back with the unbinding
        expected.acl_id = record.acl_id;
        expect_only_id_written(record, expected);
    }
    return {status, record.acl_id};
}

Answered create_group()
{
    calling("acl_vlan_group_set(CREATE)");
    GroupRecord record = {{KY_ACCESS_CMD_CREATE, 0, 0, 0, 0}, 0, 0};
    const ky_status_t status = send_group(record);
    return {status, record.header.vlan_group};
}

ky_status_t set_group(ky_access_cmd_t cmd, std::uint16_t group, std::uint16_t vlan)
{
    const char *const name = cmd == KY_ACCESS_CMD_ADD ? "ADD" : cmd == KY_ACCESS_CMD_DELETE ? "DELETE" : "DESTROY";
    calling(fmt::format("acl_vlan_group_set({}, group {}, 1 VLAN: {})", name, group, vlan));
    GroupRecord record = {{cmd, 0, 0, group, 1}, vlan, 0};
    return send_group(record);
}

ky_status_t set_vlans(ky_access_cmd_t cmd, std::uint32_t port, std::vector<ky_vlan_entry_t> entries)
{
    std::vector<std::string> texts;
    texts.reserve(entries.size());
    for (const ky_vlan_entry_t &entry : entries)
        texts.push_back(
            fmt::format("VLAN {} {}", entry.vlan, entry.mode == KY_EGRESS_MODE_TAGGED ? "tagged" : "untagged"));
    calling(fmt::format("vlan_port_multi_vlans_set({}, port 0x{:08X}, {}: {})",
                        cmd == KY_ACCESS_CMD_ADD ? "ADD" : "DELETE", port, entries.size(), fmt::join(texts, ", ")));
    const auto service = PROCESS_SYMBOL(vlan_port_multi_vlans_set);
    const auto count = static_cast<std::uint32_t>(entries.size());
    return with_record_at_edge(entries.data(), entries.size(),
                               [=](ky_vlan_entry_t *list) { return service(cmd, port, count, list); });
}

bool is_router_port(std::uint32_t port)
{
    calling(fmt::format("port_db_check_port_mode_router_port(0x{:08X})", port));
    return PROCESS_SYMBOL(port_db_check_port_mode_router_port)(port) == 0;
}

Answered read_swid(std::uint32_t port)
{
    const auto service = PROCESS_SYMBOL(port_swid_alloc_get);
    return read_number<std::uint8_t>("port_swid_alloc_get", port,
                                     [=](std::uint8_t *swid) { return service(KY_ACCESS_CMD_GET, port, swid); });
}

Answered read_lag_member(std::uint32_t port)
{
    const auto service = PROCESS_SYMBOL(port_lag_member_state_get);
    return read_number<std::uint8_t>("port_lag_member_state_get", port, [=](std::uint8_t *is_member) {
        return service(KY_ACCESS_CMD_GET, port, is_member);
    });
}

Answered read_mstp_mode(std::uint8_t swid)
{
    const auto service = PROCESS_SYMBOL(mstp_mode_get);
    return read_number<std::uint32_t>("mstp_mode_get", swid,
                                      [=](std::uint32_t *mode) { return service(KY_ACCESS_CMD_GET, swid, mode); });
}

Answered read_rstp_state(std::uint32_t port)
{
    const auto service = PROCESS_SYMBOL(rstp_port_state_get);
    return read_number<std::uint32_t>("rstp_port_state_get", port,
                                      [=](std::uint32_t *state) { return service(KY_ACCESS_CMD_GET, port, state); });
}

ky_status_t write_rstp_state(std::uint32_t port, std::uint32_t state)
{
    calling(fmt::format("rstp_port_state_set(SET, port 0x{:08X}, {})", port, state));
    const auto service = PROCESS_SYMBOL(rstp_port_state_set);
    return with_record_at_edge(&state, 1,
                               [=](std::uint32_t *address) { return service(KY_ACCESS_CMD_SET, port, address); });
}

ky_status_t register_event(std::uint32_t event, ky_adviser_callback_t callback)
{
    calling(fmt::format("adviser_register_event(1, {}, ...)", event));
    return PROCESS_SYMBOL(adviser_register_event)(1, event, callback);
}

ky_status_t get_memory(void *&memory, std::uint32_t size)
{
    calling(fmt::format("utils_clr_memory_get(..., 1, {}, {})", size, +KY_MEMORY_TAG_BRIDGE));
    return PROCESS_SYMBOL(utils_clr_memory_get)(&memory, 1, size, KY_MEMORY_TAG_BRIDGE);
}

ky_status_t put_memory(void *memory)
{
    calling(fmt::format("utils_memory_put({}, {})", memory, +KY_MEMORY_TAG_BRIDGE));
    return PROCESS_SYMBOL(utils_memory_put)(memory, KY_MEMORY_TAG_BRIDGE);
}

} // namespace conform
