// The whole story of one pair of port and VLAN: what it holds, what the hardware holds for it, and the calls that
// made that.
#include "host/screens/screens.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "bridge/db.h"

namespace host {

namespace {

using enum Table::Align;

/// The parts of a story, and the calls into the SDK that they go back to.
class Story {
public:
    Story(const Host &host, std::string title) : host_(host), parts_(std::move(title), {{"PART"}, {"NOW"}, {"BY CALL"}})
    {
    }

    void tell(const std::string &part, const std::string &now) { parts_.add({part, now, ""}); }

    /// @param call journal number of the call that made it; 0: none did
    void tell(const std::string &part, const std::string &now, std::uint64_t call)
    {
        parts_.add({part, now, call != 0 ? fmt::to_string(call) : ""});
        if (call != 0)
            calls_.push_back(call);
    }

    const Table &parts() const { return parts_; }

    /// Each call once, in the order in which they were made.
    Table calls() const
    {
        Table table("calls that made it", {{"CALL", right}, {"SERVICE"}});
        std::vector<std::uint64_t> numbers = calls_;
        std::ranges::sort(numbers);
        numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
        for (const std::uint64_t number : numbers) {
            const sdk::Call *call = host_.device.journal.find(number);
            table.add({fmt::to_string(number),
                       call != nullptr ? host_.names.in(sdk::describe(*call)) : "no longer in the journal"});
        }
        return table;
    }

private:
    const Host &host_;
    Table parts_;
    std::vector<std::uint64_t> calls_;
};

const sdk::Rule *rule_at(const Host &host, std::uint32_t region_id, const bridge_acl_offset_t *place)
{
    const auto region = host.device.acl.regions.find(region_id);
    if (place == nullptr || region == host.device.acl.regions.end())
        return nullptr;
    const auto rule = region->second.rules.find(place->offset);
    return rule != region->second.rules.end() ? &rule->second : nullptr;
}

std::string rule_in_words(const Host &host, const sdk::Rule &rule)
{
    return fmt::format("{} VLAN {} becomes VLAN {}, {}",
                       rule.log_port_mask == 0 ? "any port" : host.names.port(rule.key_log_port), rule.key_vlan,
                       rule.new_vlan, rule.dont_learn ? "not learned" : "learned");
}

void tell_rule(Story &story, const Host &host, const std::string &part, const bridge_acl_region_t &region,
               const bridge_acl_offset_t *place)
{
    const sdk::Rule *rule = rule_at(host, region.region_id, place);
    if (place == nullptr)
        story.tell(part, "none");
    else if (rule == nullptr)
        story.tell(part, fmt::format("region {} offset {}: missing in the hardware", region.region_id, place->offset));
    else
        story.tell(part,
                   fmt::format("region {} offset {}: {}", region.region_id, place->offset, rule_in_words(host, *rule)),
                   rule->call);
}

void tell_binding(Story &story, const Host &host, std::uint32_t log_port, sdk::Direction direction)
{
    const std::string part = fmt::format("{} binding", sdk::name(direction));
    const auto binding = host.device.acl.bindings.find({log_port, direction});
    if (binding == host.device.acl.bindings.end())
        return story.tell(part, "none");
    const auto acl = host.device.acl.acls.find(binding->second.acl_id);
    story.tell(part,
               fmt::format("ACL {}, region {}", binding->second.acl_id,
                           acl != host.device.acl.acls.end() ? fmt::to_string(acl->second.region_id) : "unknown"),
               binding->second.call);
}

void tell_membership(Story &story, const Host &host, std::uint32_t log_port, std::uint16_t vlan)
{
    const std::string part = fmt::format("in VLAN {}", vlan);
    const sdk::Membership *membership = host.device.vlans.find(log_port, vlan);
    const bridge_db_log_port_t *record = log_port_record(host, log_port);
    const unsigned uses = record != nullptr && vlan < BRIDGE_DB_VLAN_REF_CNT_SIZE ? record->vlan_ref_cnt[vlan] : 0;
    const std::string counter = fmt::format("the module counts {} {}", uses, uses == 1 ? "use" : "uses");
    if (membership == nullptr)
        return story.tell(part, "no member; " + counter);
    story.tell(part,
               fmt::format("{}{}; {}", name_of(tagging_names(), membership->mode),
                           membership->call == 0 ? ", joined by the host itself" : "", counter),
               membership->call);
}

void tell_port(Story &story, const Host &host, std::uint32_t log_port)
{
    const sdk::Port *port = host.device.ports.find(log_port);
    if (port == nullptr)
        return story.tell("RSTP state", "none: the device has no such port");
    story.tell("RSTP state",
               fmt::format("{}{}", sdk::name(port->rstp_state), port->rstp_call == 0 ? ", not set by the module" : ""),
               port->rstp_call);
    if (!port->link_up)
        story.tell("link", "down: no frame comes in or leaves");
}

/// The other virtual ports that use a bridge's egress rule.
std::string sharers(const Host &host, const bridge_db_bridge_t &bridge, const bridge_db_virtual_port_t &self)
{
    std::string list;
    const auto &vports = bridge.virtual_port_map;
    for (const auto *vport = vports.first(); vport != nullptr; vport = vports.next(vport))
        if (vport != &self && vport->egress_offset != nullptr)
            list +=
                fmt::format("{}{} VLAN {}", list.empty() ? "" : ", ", host.names.port(vport->log_port), vport->vlan);
    return list.empty() ? "nobody else" : list;
}

/// The bytes of the record that wrote a rule, those that have a meaning.
Table record_screen(const std::vector<std::uint8_t> &bytes)
{
    Table table("ingress rule, as it was sent", {{"AT"}, {"FIELD"}, {"BYTES"}, {"MEANS"}});
    ky_acl_rules_params_t record{};
    if (bytes.size() < sizeof record)
        return table;
    std::memcpy(&record, bytes.data(), sizeof record);
    table.note(fmt::format("{} bytes, of which these have a meaning", bytes.size()));
    const auto add = [&](const char *field, std::size_t at, std::size_t size, const std::string &meaning) {
        const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        table.add({fmt::format("0x{:03x}", at), field,
                   fmt::format("{:02x}", fmt::join(from, from + static_cast<std::ptrdiff_t>(size), " ")), meaning});
    };
#define KYBRIDGE_ADD(member, ...)                                                                                      \
    add(#member, offsetof(ky_acl_rules_params_t, member), sizeof record.member, fmt::format(__VA_ARGS__))
    KYBRIDGE_ADD(cmd, "{}", name_of(access_cmd_names(), record.cmd));
    KYBRIDGE_ADD(region_id, "region {}", record.region_id);
    KYBRIDGE_ADD(rule_count, "{} rule", record.rule_count);
    KYBRIDGE_ADD(offset, "offset {}", record.offset);
    KYBRIDGE_ADD(valid, "{}", record.valid != 0 ? "valid" : "not valid");
    KYBRIDGE_ADD(key.key_type, "key type {}", record.key.key_type);
    KYBRIDGE_ADD(key.vlan, "VLAN {}", record.key.vlan);
    KYBRIDGE_ADD(key.log_port, "port 0x{:08X}", record.key.log_port);
    KYBRIDGE_ADD(mask.vlan, "bits compared of the VLAN: 0x{:04X}", record.mask.vlan);
    KYBRIDGE_ADD(mask.log_port, "bits compared of the port: 0x{:08X}", record.mask.log_port);
    KYBRIDGE_ADD(action_selector, "action {}{}", record.action_selector,
                 record.action_selector == KY_ACL_ACTION_SET_VLAN_AND_LEARN ? ": set the VLAN, and learn or not" : "");
    KYBRIDGE_ADD(new_vlan, "VLAN becomes {}", record.new_vlan);
    KYBRIDGE_ADD(dont_learn, "{}", record.dont_learn != 0 ? "do not learn the source" : "learn the source");
#undef KYBRIDGE_ADD
    return table;
}

std::vector<Table> attached(const Host &host, const bridge_db_virtual_port_t &vport)
{
    const bridge_db_record &db = **host.module.bridge_db;
    const bridge_db_bridge_t &bridge = *db.bridge_map.find(vport.bridge_id);
    Story story(host, fmt::format("virtual port {} VLAN {}, {}", host.names.port(vport.log_port), vport.vlan,
                                  name_of(tagging_names(), vport.egress_mode)));
    story.tell("bridge",
               fmt::format("{}: ID {}, {}, learning {}, virtual ports: {}", host.names.bridge(bridge.bridge_id),
                           bridge.bridge_id, bridge.is_internal != 0 ? "internal" : "a user's",
                           name_of(learning_names(), bridge.learning_mode), bridge.virtual_port_map.count()));
    story.tell("internal VLAN", fmt::to_string(bridge.int_vlan));
    tell_rule(story, host, "ingress rule", db.ingress_region, vport.ingress_offset);
    tell_binding(story, host, vport.log_port, sdk::Direction::ingress);
    tell_rule(story, host, "egress rule", db.egress_region, vport.egress_offset);
    if (vport.egress_offset != nullptr)
        story.tell("shared with", sharers(host, bridge, vport));
    tell_binding(story, host, vport.log_port, sdk::Direction::egress);
    tell_membership(story, host, vport.log_port, vport.vlan);
    if (bridge.int_vlan != vport.vlan)
        tell_membership(story, host, vport.log_port, bridge.int_vlan);
    tell_port(story, host, vport.log_port);

    std::vector<Table> screens = {story.parts(), story.calls()};
    const sdk::Rule *rule = rule_at(host, db.ingress_region.region_id, vport.ingress_offset);
    const sdk::Call *written = rule != nullptr ? host.device.journal.find(rule->call) : nullptr;
    if (written != nullptr)
        screens.push_back(record_screen(written->sent));
    return screens;
}

/// What becomes of a frame that comes in with this VLAN though the pair is attached to no bridge.
std::string fate(const Host &host, std::uint32_t log_port, std::uint16_t vlan)
{
    const sim::Outcome arrival = sim::Switch::arrival(log_port, vlan);
    switch (arrival.drop) {
    case sim::Drop::unknown_port:
        return "none comes in: the device has no such port";
    case sim::Drop::link_down:
        return "none comes in: the link is down";
    case sim::Drop::discarding:
        return "dropped: the port's RSTP state is discarding";
    case sim::Drop::not_member:
        return fmt::format("dropped: the port is no member of VLAN {}", arrival.vlan->vlan);
    case sim::Drop::no_vlan:
        return "dropped: the port has no PVID";
    case sim::Drop::learning:
        return "their source is learned, then dropped: the port's RSTP state is learning";
    default:
        break;
    }
    if (arrival.rule->result == sim::RuleStep::Result::hit)
        return fmt::format("given VLAN {} by the ingress rule at offset {}", arrival.rule->vlan, arrival.rule->offset);
    const std::string bridge = bridge_of(host, vlan);
    if (!bridge.empty())
        return fmt::format("forwarded into bridge {}, whose internal VLAN it is", bridge);
    return fmt::format("forwarded to the other members of VLAN {}: the port is a plain member", vlan);
}

std::vector<Table> unattached(const Host &host, std::uint32_t log_port, std::uint16_t vlan)
{
    Story story(host, fmt::format("port {} VLAN {}, attached to no bridge", host.names.port(log_port), vlan));
    const bridge_db_log_port_t *record = log_port_record(host, log_port);
    if (!host.module.is_started())
        story.tell("module", "not started");
    else if (record == nullptr)
        story.tell("module", "does not know the port: it was not announced");
    else
        story.tell("module", fmt::format("knows the port; its virtual ports: {}", record->back_ref_map.count()));
    tell_binding(story, host, log_port, sdk::Direction::ingress);
    tell_membership(story, host, log_port, vlan);
    tell_port(story, host, log_port);
    story.tell("frames of it", fate(host, log_port, vlan));
    return {story.parts(), story.calls()};
}

} // namespace

std::vector<Table> explanation(const Host &host, std::uint32_t log_port, std::uint16_t vlan)
{
    const bridge_db_log_port_t *record = log_port_record(host, log_port);
    const bridge_db_virtual_port_t *vport = record != nullptr ? record->back_ref_map.find(vlan) : nullptr;
    return vport != nullptr ? attached(host, *vport) : unattached(host, log_port, vlan);
}

} // namespace host
