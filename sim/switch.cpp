#include "sim/switch.h"

#include <utility>

namespace sim {
namespace {

Drop drop_of(FrameFault fault)
{
    switch (fault) {
    case FrameFault::runt:
        return Drop::runt;
    case FrameFault::cut_tag:
        return Drop::cut_tag;
    case FrameFault::oversized:
        return Drop::oversized;
    case FrameFault::none:
        break;
    }
    return Drop::none;
}

std::optional<VlanStep> choose_vlan(const Header &header, const sdk::Port &port)
{
    if (header.tag && header.tag->vid != 0)
        return VlanStep{header.tag->vid, VlanSource::tag};
    if (!port.pvid)
        return std::nullopt;
    return VlanStep{*port.pvid, header.tag ? VlanSource::pvid_priority_tag : VlanSource::pvid_untagged};
}

RuleStep apply_acl(std::uint32_t port, sdk::Direction direction, std::uint16_t vlan)
{
    RuleStep step{.result = RuleStep::Result::unbound, .vlan_before = vlan, .vlan = vlan};
    const sdk::Region *region = sdk::device().acl.region_of(port, direction);
    if (region == nullptr)
        return step;

    step.result = RuleStep::Result::miss;
    for (const auto &[offset, rule] : region->rules) {
        if (!rule.matches(port, vlan))
            continue;
        step.result = RuleStep::Result::hit;
        step.offset = offset;
        step.vlan = rule.new_vlan;
        step.dont_learn = rule.dont_learn;
        break;
    }
    return step;
}

/// Why a port takes no part in forwarding.
Drop readiness(const sdk::Port *port)
{
    if (port == nullptr)
        return Drop::unknown_port;
    if (!port->link_up)
        return Drop::link_down;
    switch (port->rstp_state) {
    case sdk::RstpState::discarding:
        return Drop::discarding;
    case sdk::RstpState::learning:
        return Drop::learning;
    case sdk::RstpState::forwarding:
        return Drop::none;
    }
    return Drop::discarding; // a number that RSTP does not know
}

/// The tag of a frame that leaves in a VLAN: PCP and DEI stay those that it came with.
Tag egress_tag(const Header &header, std::uint16_t vlan)
{
    Tag tag = header.tag.value_or(Tag{});
    tag.vid = vlan;
    return tag;
}

/// Egress ACL, membership and tag of the frame at one port.
void decide_exit(const Outcome &outcome, Exit &exit)
{
    const sdk::Device &device = sdk::device();
    exit.drop = readiness(device.ports.find(exit.port));
    if (exit.drop != Drop::none)
        return;
    if (device.vlans.find(exit.port, outcome.rule->vlan) == nullptr) {
        exit.drop = Drop::not_member;
        return;
    }

    exit.rule = apply_acl(exit.port, sdk::Direction::egress, outcome.rule->vlan);

    const sdk::Membership *membership = device.vlans.find(exit.port, exit.rule->vlan);
    if (membership == nullptr) {
        exit.drop = Drop::not_member;
        return;
    }
    if (membership->mode != KY_EGRESS_MODE_UNTAGGED)
        exit.tag = egress_tag(*outcome.header, exit.rule->vlan);

    exit.size = outcome.size - outcome.header->size() + frame_size_min + (exit.tag ? tag_size : 0);
    if (exit.size > frame_size_max)
        exit.drop = Drop::oversized;
}

} // namespace

Switch::Switch(std::size_t fdb_limit) : fdb_(fdb_limit)
{
    sdk::device().vlans.on_leave = [this](std::uint32_t port, std::uint16_t vlan) { fdb_.flush(port, vlan); };
}

Switch::~Switch()
{
    sdk::device().vlans.on_leave = nullptr;
}

Outcome Switch::forward(std::uint32_t port, BytesView frame)
{
    Outcome outcome{.port = port, .size = frame.size()};
    decide(frame, outcome);

    Counters &counters = counters_[port];
    ++counters.in.frames;
    counters.in.bytes += frame.size();
    if (outcome.drop != Drop::none)
        ++counters.dropped_in[static_cast<std::size_t>(outcome.drop)];
    return outcome;
}

void Switch::decide(BytesView frame, Outcome &outcome)
{
    const sdk::Device &device = sdk::device();
    const auto drop = [&outcome](Drop reason) { outcome.drop = reason; };

    Header header;
    const FrameFault fault = parse(frame, header);
    if (fault != FrameFault::none)
        return drop(drop_of(fault));
    outcome.header = header;

    const sdk::Port *port = device.ports.find(outcome.port);
    const Drop ready = readiness(port);
    if (ready == Drop::unknown_port || ready == Drop::link_down)
        return drop(ready);
    outcome.state = port->rstp_state;
    if (ready == Drop::discarding)
        return drop(ready);

    outcome.vlan = choose_vlan(header, *port);
    if (!outcome.vlan)
        return drop(Drop::no_vlan);
    if (device.vlans.find(outcome.port, outcome.vlan->vlan) == nullptr)
        return drop(Drop::not_member);

    outcome.rule = apply_acl(outcome.port, sdk::Direction::ingress, outcome.vlan->vlan);
    outcome.learn = learn(outcome);
    if (ready == Drop::learning)
        return drop(ready);

    const std::uint16_t vlan = outcome.rule->vlan;
    if (header.destination.is_multicast()) {
        outcome.lookup = LookupStep{LookupStep::Result::multicast};
    } else if (const auto known = fdb_.find(vlan, header.destination)) {
        outcome.lookup = LookupStep{LookupStep::Result::known, *known};
        if (*known == outcome.port)
            return drop(Drop::filtered);
        return send(frame, *known, outcome);
    } else {
        outcome.lookup = LookupStep{LookupStep::Result::unknown};
    }

    for (const auto &[member, membership] : device.vlans.members(vlan)) {
        if (member != outcome.port)
            send(frame, member, outcome);
    }
    if (outcome.exits.empty())
        drop(Drop::no_receiver);
}

Learning Switch::learn(const Outcome &outcome)
{
    if (outcome.rule->dont_learn)
        return {Learning::Result::forbidden};
    if (outcome.header->source.is_multicast())
        return {Learning::Result::multicast_source};
    return fdb_.learn(outcome.rule->vlan, outcome.header->source, outcome.port);
}

void Switch::send(BytesView frame, std::uint32_t port, Outcome &outcome)
{
    Exit &exit = outcome.exits.emplace_back(Exit{.port = port});
    decide_exit(outcome, exit);

    Counters &counters = counters_[port];
    if (exit.drop != Drop::none) {
        ++counters.dropped_out[static_cast<std::size_t>(exit.drop)];
        return;
    }
    outcome.transmissions.push_back({port, retag(frame, *outcome.header, exit.tag)});
    ++counters.out.frames;
    counters.out.bytes += exit.size;
}

bool Switch::set_link(std::uint32_t port, bool up)
{
    sdk::Port *found = sdk::device().ports.find(port);
    if (found == nullptr)
        return false;
    found->link_up = up;
    if (!up)
        fdb_.flush(port);
    return true;
}

} // namespace sim
