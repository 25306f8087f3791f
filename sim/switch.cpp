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
    if (const auto *match = region->rules.first_match(port, vlan)) {
        const auto &[offset, rule] = *match;
        step.result = RuleStep::Result::hit;
        step.offset = offset;
        step.vlan = rule.new_vlan;
        step.dont_learn = rule.dont_learn;
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

/// Takes the frame of an outcome in, up to the ingress rule, and writes down the steps.
/// @return why it gets no further; Drop::learning: than to be learned
Drop take_in(Outcome &outcome)
{
    const sdk::Device &device = sdk::device();
    const sdk::Port *port = device.ports.find(outcome.port);
    const Drop ready = readiness(port);
    if (ready == Drop::unknown_port || ready == Drop::link_down)
        return ready;
    outcome.state = port->rstp_state;
    if (ready == Drop::discarding)
        return ready;

    outcome.vlan = choose_vlan(*outcome.header, *port);
    if (!outcome.vlan)
        return Drop::no_vlan;
    if (device.vlans.find(outcome.port, outcome.vlan->vlan) == nullptr)
        return Drop::not_member;

    outcome.rule = apply_acl(outcome.port, sdk::Direction::ingress, outcome.vlan->vlan);
    return ready;
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

Outcome Switch::arrival(std::uint32_t port, std::uint16_t vlan)
{
    Outcome outcome{.port = port, .header = Header{.tag = Tag{.vid = vlan}}};
    outcome.drop = take_in(outcome);
    return outcome;
}

Outcome Switch::forward(std::uint32_t port, BytesView frame)
{
    Outcome outcome = decide(port, frame, frame.size());
    for (const Exit &exit : outcome.exits) {
        if (exit.drop == Drop::none)
            outcome.transmissions.push_back({exit.port, retag(frame, *outcome.header, exit.tag)});
    }
    return outcome;
}

const Outcome &Switch::decide(std::uint32_t port, BytesView frame, std::size_t wire_size)
{
    std::vector<Exit> exits = std::move(outcome_.exits); // for the memory that it holds
    exits.clear();
    outcome_ = {.port = port, .size = frame.size(), .exits = std::move(exits)};
    unsegmented_ = frame.size() - wire_size;
    outcome_.drop = receive(frame, wire_size);

    Counters &counters = counters_[port];
    ++counters.in.frames;
    counters.in.bytes += frame.size();
    if (outcome_.drop != Drop::none)
        ++counters.dropped_in[static_cast<std::size_t>(outcome_.drop)];
    return outcome_;
}

/// @return why the frame is meant for no port at all
Drop Switch::receive(BytesView frame, std::size_t wire_size)
{
    Header header;
    if (const FrameFault fault = parse(frame, header); fault != FrameFault::none)
        return drop_of(fault);
    if (wire_size > frame_size_max)
        return Drop::oversized;
    outcome_.header = header;

    const Drop taken_in = take_in(outcome_);
    if (!outcome_.rule)
        return taken_in;
    outcome_.learn = learn();
    return taken_in == Drop::learning ? taken_in : relay();
}

/// Sends the frame to where its destination is. @return why it is meant for no port at all
Drop Switch::relay()
{
    const std::uint16_t vlan = outcome_.rule->vlan;
    const Mac &destination = outcome_.header->destination;
    outcome_.lookup = LookupStep{};
    if (destination.is_reserved()) {
        outcome_.lookup->result = LookupStep::Result::reserved;
        return Drop::reserved;
    }
    if (destination.is_multicast()) {
        outcome_.lookup->result = LookupStep::Result::multicast;
    } else if (const auto known = fdb_.find(vlan, destination)) {
        outcome_.lookup = LookupStep{LookupStep::Result::known, *known};
        if (*known == outcome_.port)
            return Drop::filtered;
        send(*known);
        return Drop::none;
    } else {
        outcome_.lookup->result = LookupStep::Result::unknown;
    }

    for (const auto &[member, membership] : sdk::device().vlans.members(vlan)) {
        if (member != outcome_.port)
            send(member);
    }
    return outcome_.exits.empty() ? Drop::no_receiver : Drop::none;
}

Learning Switch::learn()
{
    const Mac &source = outcome_.header->source;
    if (outcome_.rule->dont_learn)
        return {Learning::Result::forbidden};
    if (source.is_multicast())
        return {Learning::Result::multicast_source};
    if (source == Mac{})
        return {Learning::Result::zero_source};
    return fdb_.learn(outcome_.rule->vlan, source, outcome_.port);
}

/// Egress ACL, membership and tag of the frame at one port.
Drop Switch::leave(Exit &exit) const
{
    const sdk::Device &device = sdk::device();
    if (const Drop ready = readiness(device.ports.find(exit.port)); ready != Drop::none)
        return ready;
    if (device.vlans.find(exit.port, outcome_.rule->vlan) == nullptr)
        return Drop::not_member;

    exit.rule = apply_acl(exit.port, sdk::Direction::egress, outcome_.rule->vlan);

    const sdk::Membership *membership = device.vlans.find(exit.port, exit.rule->vlan);
    if (membership == nullptr)
        return Drop::not_member;
    if (membership->mode != KY_EGRESS_MODE_UNTAGGED)
        exit.tag = egress_tag(*outcome_.header, exit.rule->vlan);

    exit.size = retagged_size(outcome_.size, *outcome_.header, exit.tag);
    return exit.size - unsegmented_ > frame_size_max ? Drop::oversized : Drop::none;
}

void Switch::send(std::uint32_t port)
{
    Exit &exit = outcome_.exits.emplace_back(Exit{.port = port});
    exit.drop = leave(exit);

    Counters &counters = counters_[port];
    if (exit.drop != Drop::none) {
        ++counters.dropped_out[static_cast<std::size_t>(exit.drop)];
        return;
    }
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
