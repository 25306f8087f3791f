#include "sim/trace.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

namespace sim {
namespace {

struct DropTexts {
    std::string_view name;
    std::string_view text;
};

/// By Drop.
constexpr std::array<DropTexts, drop_count> drop_texts{{
    {"none", "not dropped"},
    {"runt", "a runt, shorter than the 14 bytes of an Ethernet header"},
    {"cut tag", "the frame ends within its tag"},
    {"oversized", "longer than 9216 bytes"},
    {"unknown port", "the device has no such port"},
    {"link down", "the link is down"},
    {"discarding", "the port is discarding"},
    {"learning", "the port is learning, not forwarding yet"},
    {"no vlan", "no VLAN: the frame has no tag that names one and the port has no PVID"},
    {"not a member", "the port is no member of the VLAN"},
    {"reserved", "the destination is a group address that no bridge relays"},
    {"filtered", "the destination is where the frame came from"},
    {"no receiver", "the VLAN has no other member"},
}};

class Writer {
public:
    Writer(const Outcome &outcome, const PortNames &names) : outcome_(outcome), names_(names)
    {
        for (const Exit &exit : outcome.exits)
            width_ = std::max(width_, exit_mark.size() + names(exit.port).size());
    }

    std::string write()
    {
        headline();
        if (outcome_.state)
            line("port", std::string(sdk::name(*outcome_.state)));
        if (outcome_.vlan)
            line("vlan", vlan(*outcome_.vlan));
        if (outcome_.rule)
            line("ingress", rule(*outcome_.rule) + (outcome_.rule->dont_learn ? ", don't learn" : ""));
        if (outcome_.learn)
            line("learn", learn(*outcome_.learn));
        if (outcome_.lookup)
            line("lookup", lookup(*outcome_.lookup));
        exits();
        verdict();
        return std::move(text_);
    }

private:
    void headline()
    {
        const std::string header = outcome_.header ? outcome_.header->text() : "not a frame";
        append("{}  {}, {}\n", names_(outcome_.port), header, bytes(outcome_.size));
    }

    static std::string vlan(const VlanStep &step)
    {
        switch (step.source) {
        case VlanSource::tag:
            return fmt::format("{}, from the tag", step.vlan);
        case VlanSource::pvid_untagged:
            return fmt::format("{}, the port's PVID: the frame is untagged", step.vlan);
        case VlanSource::pvid_priority_tag:
            return fmt::format("{}, the port's PVID: the tag gives a priority only", step.vlan);
        }
        return {};
    }

    /// @param direction "egress " where the line does not say it already
    static std::string rule(const RuleStep &step, std::string_view direction = "")
    {
        switch (step.result) {
        case RuleStep::Result::unbound:
            return fmt::format("no {}ACL", direction);
        case RuleStep::Result::miss:
            return fmt::format("no {}rule for vlan {}", direction, step.vlan_before);
        case RuleStep::Result::hit:
            return fmt::format("{}rule {}: vlan {} -> {}", direction, step.offset, step.vlan_before, step.vlan);
        }
        return {};
    }

    std::string learn(const Learning &step) const
    {
        const std::string source = outcome_.header->source.text();
        std::string station = fmt::format("{} in vlan {} at {}", source, outcome_.rule->vlan, names_(outcome_.port));
        switch (step.result) {
        case Learning::Result::added:
            return station;
        case Learning::Result::known:
            return station + ", known";
        case Learning::Result::moved:
            return fmt::format("{}, moved from {}", station, names_(step.previous_port));
        case Learning::Result::replaced:
            return fmt::format("{}, in the place of the longest unheard at {}: the FDB is full", station,
                               names_(step.previous_port));
        case Learning::Result::forbidden:
            return "no, the ingress rule forbids it";
        case Learning::Result::multicast_source:
            return fmt::format("no, {} is a multicast address", source);
        case Learning::Result::zero_source:
            return fmt::format("no, {} is no station's address", source);
        }
        return {};
    }

    std::string lookup(const LookupStep &step) const
    {
        const Mac &destination = outcome_.header->destination;
        const std::uint16_t in_vlan = outcome_.rule->vlan;
        switch (step.result) {
        case LookupStep::Result::known:
            return fmt::format("{} in vlan {} is at {}", destination.text(), in_vlan, names_(step.port));
        case LookupStep::Result::unknown:
            return fmt::format("{} in vlan {} is unknown, flooded", destination.text(), in_vlan);
        case LookupStep::Result::multicast:
            return fmt::format("{}, flooded in vlan {}", destination.is_broadcast() ? "broadcast" : "multicast",
                               in_vlan);
        case LookupStep::Result::reserved:
            return fmt::format("{} is reserved for what stays within a link", destination.text());
        }
        return {};
    }

    void exits()
    {
        for (const Exit &exit : outcome_.exits) {
            const std::string port = fmt::format("{} {}", exit.drop == Drop::none ? '>' : 'x', names_(exit.port));
            append("  {:<{}}  ", port, width_);
            if (exit.rule)
                append("{}, ", rule(*exit.rule, "egress "));
            if (exit.drop != Drop::none)
                append("dropped: {}\n", drop_text(exit));
            else if (exit.tag)
                append("sent tagged: {}, {}\n", exit.tag->text(), bytes(exit.size));
            else
                append("sent untagged, {}\n", bytes(exit.size));
        }
    }

    std::string drop_text(const Exit &exit) const
    {
        if (exit.drop == Drop::not_member)
            return fmt::format("the port is no member of vlan {}", exit.rule ? exit.rule->vlan : outcome_.rule->vlan);
        return std::string(text(exit.drop));
    }

    void verdict()
    {
        const auto sent =
            std::ranges::count_if(outcome_.exits, [](const Exit &exit) { return exit.drop == Drop::none; });
        if (outcome_.drop != Drop::none)
            append("  dropped: {}\n", text(outcome_.drop));
        else if (sent == 0)
            append("  sent nowhere\n");
        else
            append("  sent at {} port{}\n", sent, sent == 1 ? "" : "s");
    }

    static std::string bytes(std::size_t size) { return fmt::format("{} byte{}", size, size == 1 ? "" : "s"); }

    void line(std::string_view step, const std::string &decision) { append("  {:<{}}  {}\n", step, width_, decision); }

    template <class... Arguments> void append(fmt::format_string<Arguments...> format, Arguments &&...arguments)
    {
        fmt::format_to(std::back_inserter(text_), format, std::forward<Arguments>(arguments)...);
    }

    static constexpr std::string_view exit_mark = "> ";

    const Outcome &outcome_;
    const PortNames &names_;
    std::size_t width_ = 7; ///< of the first column: "ingress", or the longest port name with its mark
    std::string text_;
};

} // namespace

std::string port_number(std::uint32_t port)
{
    return fmt::format("0x{:08x}", port);
}

std::string trace(const Outcome &outcome, const PortNames &names)
{
    return Writer(outcome, names).write();
}

std::string_view text(Drop drop)
{
    return drop_texts[static_cast<std::size_t>(drop)].text;
}

std::string_view name(Drop drop)
{
    return drop_texts[static_cast<std::size_t>(drop)].name;
}

} // namespace sim
