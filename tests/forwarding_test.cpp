// Random operations on the module, after which every frame must come out where the virtual ports of the model's state
// say, as they say, and nowhere else. KYBRIDGE_CONFIGURATIONS sets how many states are tried, KYBRIDGE_RANDOM_SEED
// which.
#include <map>
#include <random>

#include <fmt/format.h>

#include "sim/switch.h"
#include "sim/trace.h"
#include "support/effort.h"
#include "support/module_fixture.h"
#include "support/steps.h"

using namespace operations;

namespace {

constexpr std::uint16_t plain_vlan = 300; ///< of the host's own members
const std::vector<std::uint16_t> vlans_of_frames = {100, 101, 102, 4094, plain_vlan, 1, 2, 3, 4};

/// No virtual port's VLAN is an internal one. Where it is, frames of one bridge reach ports of the other, and are
/// tagged there as the last join asked for, which a state does not tell. Nor is it 0, which no frame is taken into.
/// Ports are in SWIDs that are served: a stop leaves the virtual ports of others in the hardware.
const Domain domain = [] {
    Domain any = border_domain();
    any.vlans = {100, 101, 102, 4094, 4095};
    any.extra_values = {1};
    any.starts.resize(2); // with room for something
    return any;
}();

using Arrival = std::pair<std::uint32_t, sim::Header>;  ///< the port, and what comes there
using Exits = std::multimap<std::uint32_t, sim::Bytes>; ///< frames that leave, by port

sim::Bytes frame(const sim::Header &header)
{
    return sim::build(header, sim::Bytes(46, 0xA5));
}

sim::Mac station(std::uint32_t port)
{
    return {{2, 0, 0, 0, 0, static_cast<std::uint8_t>(port)}};
}

/// What frames are to be forwarded by: the module's bridges, and what a host sets beside it.
struct Configuration {
    /// 0: the host's own VLAN, which forwards as a bridge does that learns and uses one VLAN inside and outside.
    std::map<std::uint32_t, State::Bridge> bridges;
    std::map<std::uint32_t, sdk::Port> ports; ///< their RSTP states and PVIDs

    /// Any settings of a host, without the module's bridges.
    explicit Configuration(const Below &below)
    {
        using enum sdk::RstpState;
        bridges[0].int_vlan = plain_vlan;
        bridges[0].learning = 1;
        for (const std::uint32_t port : domain.ports) {
            ports[port].rstp_state = std::array{discarding, learning, forwarding}.at(std::min(below(24), 2U));
            if (const std::uint32_t number = below(12); number < vlans_of_frames.size())
                ports[port].pvid = vlans_of_frames[number];
            if (below(2) != 0)
                bridges[0].virtual_ports[port] = {.vlan = plain_vlan, .mode = below(2)};
        }
    }

    /// Sets what a host sets. @return the same as lines of a script
    std::string set() const
    {
        sdk::Device &device = sdk::device();
        std::string lines;
        for (const auto &[number, port] : ports) {
            device.ports.ports[number].pvid = port.pvid;
            device.ports.ports[number].rstp_state = port.rstp_state;
            device.vlans.leave(number, plain_vlan);
            lines += fmt::format("port set {} rstp {} pvid {}\n", number, sdk::name(port.rstp_state),
                                 port.pvid ? std::to_string(*port.pvid) : "none");
        }
        for (const auto &[number, member] : bridges.at(0).virtual_ports) {
            device.vlans.join(number, plain_vlan, member.mode);
            lines += fmt::format("vlan join {} {} {}\n", number, plain_vlan, member.mode);
        }
        return lines;
    }

    bool forwards(std::uint32_t port) const { return ports.at(port).rstp_state == sdk::RstpState::forwarding; }

    /// What leaves when the destination is not known. Entering with the internal VLAN's number is no attachment, but
    /// the port is a member of it, as a plain VLAN switch would have it.
    Exits flood(const Arrival &arrival) const
    {
        const auto &[port, header] = arrival;
        const sim::Tag tag = header.tag.value_or(sim::Tag{});
        const std::uint16_t vlan = tag.vid != 0 ? tag.vid : ports.at(port).pvid.value_or(std::uint16_t{0});
        Exits exits;
        for (const auto &[id, bridge] : bridges) {
            const auto in = bridge.virtual_ports.find(port);
            if (in == bridge.virtual_ports.end() || (in->second.vlan != vlan && bridge.int_vlan != vlan))
                continue;
            for (const auto &[other, out] : bridge.virtual_ports) {
                sim::Header left = header;
                left.tag = {tag.pcp, tag.dei, static_cast<std::uint16_t>(out.vlan)};
                if (out.mode == KY_EGRESS_MODE_UNTAGGED)
                    left.tag.reset();
                if (other != port && forwards(port) && forwards(other))
                    exits.emplace(other, frame(left));
            }
        }
        return exits;
    }
};

/// Sends frames, and looks where the last one leaves.
/// @return how it went when it left elsewhere, as the rest of a script; empty: all well
std::string check(sim::Switch &software_switch, const std::vector<Arrival> &arrivals, const Exits &expected)
{
    software_switch.fdb().flush();
    sim::Outcome outcome;
    for (const auto &[port, header] : arrivals)
        outcome = software_switch.forward(port, frame(header));
    Exits exits;
    for (const sim::Transmission &sent : outcome.transmissions)
        exits.emplace(sent.port, sent.frame);
    if (exits == expected)
        return "";
    std::string lines;
    for (const auto &[port, header] : arrivals)
        lines += fmt::format("send {} {}\n", port, sim::hex(frame(header)));
    lines += fmt::format("# must leave {} times\n", expected.size());
    for (const auto &[port, bytes] : expected)
        lines += fmt::format("# at {}: {}\n", port, sim::hex(bytes));
    return lines + "\n" + sim::trace(outcome);
}

/// Sends broadcasts into every port in every VLAN, and unicasts between each two virtual ports of a bridge, which leave
/// at their destination only where the bridge learns. @return as the function above
std::string check(sim::Switch &software_switch, const State &state, Configuration configuration)
{
    auto &[bridges, ports] = configuration;
    bridges.insert(state.bridges.begin(), state.bridges.end());
    constexpr sim::Mac broadcast{{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
    std::vector<std::optional<sim::Tag>> tags = {std::nullopt, sim::Tag{.pcp = 5, .dei = true, .vid = 0}};
    for (const std::uint16_t vlan : vlans_of_frames)
        tags.push_back(sim::Tag{.pcp = 5, .dei = true, .vid = vlan});
    std::string wrong;
    for (const auto &[port, settings] : ports)
        for (const auto &tag : tags) {
            const Arrival arrival{port, {broadcast, station(port), tag, 0x0800}};
            if (wrong.empty())
                wrong = check(software_switch, {arrival}, configuration.flood(arrival));
        }
    for (const auto &[id, bridge] : bridges)
        for (const auto &[from, attached] : bridge.virtual_ports)
            for (const auto &[to, unused] : bridge.virtual_ports) {
                const sim::Tag tag{.vid = static_cast<std::uint16_t>(attached.vlan)};
                const Arrival heard{to, {broadcast, station(to), tag, 0x0800}};
                const Arrival unicast{from, {station(to), station(from), tag, 0x0800}};
                Exits exits = configuration.flood(unicast);
                if (bridge.learning != 0 && ports.at(to).rstp_state != sdk::RstpState::discarding)
                    std::erase_if(exits, [to = to](const auto &exit) { return exit.first != to; });
                if (wrong.empty())
                    wrong = check(software_switch, {heard, unicast}, exits);
            }
    return wrong;
}

/// Carries steps out from power-on and looks at every frame then. @return as check
std::string fails(const std::vector<Step> &steps, const Configuration &host)
{
    const State state = reach(domain, path(steps));
    host.set();
    sim::Switch software_switch;
    return check(software_switch, state, host);
}

using Forwarding = ModuleTest;

TEST_F(Forwarding, EveryFrameLeavesAtTheOtherVirtualPortsOfItsBridgeAndNowhereElse)
{
    const std::uint64_t count = environment("KYBRIDGE_CONFIGURATIONS", reduced_effort() ? 500 : 10000);
    const std::uint64_t seed = environment("KYBRIDGE_RANDOM_SEED", std::random_device()());
    std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
    std::mt19937_64 engine(seed);
    const Below below = [&engine](std::uint32_t limit) {
        return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(engine);
    };

    sim::Switch software_switch;
    State state;
    std::vector<Step> steps;  // since power-on
    std::size_t attached = 0; // pairs of virtual ports of a bridge
    for (std::uint64_t number = 0; number < count; ++number) {
        if (!state.mode) { // VLAN groups outlive the module, but not the power
            TearDown();
            power_on(domain);
            steps.clear();
        }
        const Configuration host(below);
        host.set();
        for (unsigned tried = 0; tried < 16 && (tried == 0 || state.mode); ++tried) {
            const Operation operation = any_operation(domain, below);
            if ((operation.kind == Kind::start && state.mode) || (operation.kind == Kind::stop && below(8) != 0))
                continue; // no host starts what runs, or stops it often
            steps.push_back({operation});
            const Answer predicted = predict(state, operation);
            ASSERT_EQ(apply(operation).status, predicted.status) << "seed " << seed << "\n" << script(domain, steps);
        }
        if (const std::string wrong = check(software_switch, state, host); !wrong.empty()) {
            const std::vector<Step> shortest =
                shrink(steps, [&](const std::vector<Step> &some) { return !fails(some, host).empty(); });
            FAIL() << "seed " << seed << ", configuration " << number << ":\n"
                   << wrong << "\nthe shortest sequence found, as a script for kybridge-host:\n\n"
                   << script(domain, shortest) << host.set() << fails(shortest, host);
        }
        for (const auto &[id, bridge] : state.bridges)
            attached += bridge.virtual_ports.size() * (bridge.virtual_ports.size() - 1) / 2;
    }
    EXPECT_GT(attached, count / 2) << "too little was attached to show anything";
}

} // namespace
