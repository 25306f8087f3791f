/// Random configurations, reached through the module's API, in which every frame must come out where the
/// attached virtual ports say, as they say, and nowhere else.
#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <set>

#include "sim/switch.h"
#include "sim/trace.h"
#include "support/module_fixture.h"

namespace {

constexpr std::uint32_t max_bridges = 4; ///< internal VLANs 1 to 4
const std::vector<std::uint32_t> ports = {0x10001, 0x10002, 0x10003, 0x10004};
const std::vector<std::uint16_t> user_vlans = {100, 101, 102}; ///< of virtual ports
constexpr std::uint16_t plain_vlan = 300;                      ///< of the host's own membership

/// Where a frame leaves: the port, and its VLAN there, 0 for untagged.
using Exits = std::set<std::pair<std::uint32_t, std::uint16_t>>;

struct Bridge {
    std::uint16_t int_vlan = 0;
    std::uint16_t vlan = 0; ///< of its virtual ports
    bool learns = false;
    std::map<std::uint32_t, std::uint32_t> vports; ///< egress mode by port
};

class Forwarding : public ModuleTest {
protected:
    explicit Forwarding(std::uint64_t seed = std::getenv("KYBRIDGE_SEED") != nullptr
                                                 ? std::strtoull(std::getenv("KYBRIDGE_SEED"), nullptr, 10)
                                                 : std::random_device()())
        : random(seed)
    {
        RecordProperty("seed", std::to_string(seed));
        description = "KYBRIDGE_SEED=" + std::to_string(seed);
        device.journal.keep(0);
    }

    std::uint32_t pick(std::uint32_t count)
    {
        return std::uniform_int_distribution<std::uint32_t>(0, count - 1)(random);
    }
    template <typename List> auto pick_from(const List &list)
    {
        return list[pick(static_cast<std::uint32_t>(list.size()))];
    }

    bool is_attached_elsewhere(std::uint32_t port, std::uint16_t vlan) const
    {
        return std::any_of(bridges.begin(), bridges.end(), [&](const auto &entry) {
            return entry.second.vports.contains(port) && entry.second.vlan == vlan;
        });
    }

    /// One step to another configuration; what is picked but not possible is left out.
    void change()
    {
        const auto bridge_id = static_cast<std::uint16_t>(1 + pick(max_bridges));
        const std::uint32_t port = pick_from(ports);
        Bridge &bridge = bridges[bridge_id];
        if (bridge.int_vlan == 0) {
            bridges.erase(bridge_id);
            const std::uint16_t created = create_bridge();
            Bridge &fresh = bridges[created];
            ASSERT_EQ(ky_bridge_int_vlan_id_get(created, &fresh.int_vlan, 0), 0U);
            return;
        }
        switch (pick(8)) {
        case 0: // take the port out, with everything that it is in
            ASSERT_EQ(ky_bridge_clear_port(port, 1), 0U);
            ASSERT_EQ(ky_bridge_clear_undo(port, 0), 0U);
            for (auto &[id, other] : bridges)
                other.vports.erase(port);
            break;
        case 1:
            if (bridge.vports.empty()) {
                ASSERT_EQ(destroy_bridge(bridge_id), 0U);
                bridges.erase(bridge_id);
            }
            break;
        case 2:
            bridge.learns = !bridge.learns;
            ASSERT_EQ(ky_bridge_set_learning_mode(bridge_id, bridge.learns ? 1 : 0, 0), 0U);
            break;
        case 3:
            if (bridge.vports.erase(port) != 0) {
                ASSERT_EQ(remove(bridge_id, port, bridge.vlan), 0U);
            }
            break;
        default: {
            const std::uint16_t vlan = bridge.vports.empty() ? pick_from(user_vlans) : bridge.vlan;
            if (!is_attached_elsewhere(port, vlan)) {
                bridge.vlan = vlan;
                bridge.vports[port] = pick(2);
                ASSERT_EQ(add(bridge_id, port, vlan, bridge.vports[port]), 0U);
            }
        }
        }
    }

    /// Where a flooded frame must come out that enters a port in a VLAN. Entering with the bridge's internal VLAN
    /// is no attachment, but the port is a member of it, as a plain VLAN switch would have it.
    Exits expected(std::uint32_t port, std::uint16_t vlan) const
    {
        Exits exits;
        for (const auto &[id, bridge] : bridges)
            if (bridge.vports.contains(port) && (bridge.vlan == vlan || bridge.int_vlan == vlan))
                for (const auto &[other, mode] : bridge.vports)
                    if (other != port)
                        exits.emplace(other, mode == KY_EGRESS_MODE_TAGGED ? bridge.vlan : std::uint16_t{0});
        if (vlan == plain_vlan && plain_members.contains(port))
            for (const auto &[other, mode] : plain_members)
                if (other != port)
                    exits.emplace(other, mode == KY_EGRESS_MODE_TAGGED ? plain_vlan : std::uint16_t{0});
        return exits;
    }

    /// Sends a frame and fails the test unless it comes out exactly where it must.
    void expect_exits(sim::Switch &software_switch, std::uint32_t port, const sim::Header &header,
                      const Exits &expected)
    {
        const std::vector<std::uint8_t> payload(46, 0xA5);
        const sim::Outcome outcome = software_switch.forward(port, sim::build(header, payload));
        Exits exits;
        delivered += outcome.transmissions.size();
        for (const sim::Transmission &sent : outcome.transmissions) {
            sim::Header left;
            ASSERT_EQ(sim::parse(sent.frame, left), sim::FrameFault::none);
            EXPECT_TRUE(exits.emplace(sent.port, left.tag ? left.tag->vid : std::uint16_t{0}).second);
            EXPECT_TRUE(!left.tag || !header.tag || left.tag->pcp == header.tag->pcp) << "the priority was lost";
            EXPECT_TRUE(std::equal(payload.begin(), payload.end(), sent.frame.end() - 46)) << "the payload was changed";
        }
        ASSERT_EQ(exits, expected) << description << "\n" << sim::trace(outcome, {});
    }

    static sim::Header header(std::uint32_t from, sim::Mac destination, std::uint16_t vlan)
    {
        // A frame that comes with an internal VLAN's number is no virtual port's; what it teaches is kept apart.
        sim::Mac source = mac_of(from);
        source.bytes[4] = vlan >= 1 && vlan <= max_bridges ? 1 : 0;
        return {
            .destination = destination, .source = source, .tag = sim::Tag{.pcp = 5, .vid = vlan}, .ether_type = 0x0800};
    }
    static sim::Mac mac_of(std::uint32_t port) { return {{2, 0, 0, 0, 0, static_cast<std::uint8_t>(port)}}; }
    static constexpr sim::Mac broadcast{{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};

    void check_every_frame(sim::Switch &software_switch)
    {
        std::vector<std::uint16_t> vlans = user_vlans;
        vlans.insert(vlans.end(), {plain_vlan, 1, 2, 3, 4, 4094});
        for (const std::uint32_t port : ports) {
            for (const std::uint16_t vlan : vlans)
                ASSERT_NO_FATAL_FAILURE(
                    expect_exits(software_switch, port, header(port, broadcast, vlan), expected(port, vlan)));
            // Untagged and priority-tagged frames go by the PVID.
            sim::Header untagged = header(port, broadcast, 0);
            const Exits by_pvid = expected(port, device.ports.find(port)->pvid.value_or(0));
            ASSERT_NO_FATAL_FAILURE(expect_exits(software_switch, port, untagged, by_pvid));
            untagged.tag.reset();
            ASSERT_NO_FATAL_FAILURE(expect_exits(software_switch, port, untagged, by_pvid));
        }
        // Every station has been heard by now: where a bridge learns, its unicast goes to one port only.
        for (const auto &[id, bridge] : bridges)
            for (const auto &[from, from_mode] : bridge.vports)
                for (const auto &[to, to_mode] : bridge.vports)
                    if (from != to) {
                        const std::uint16_t out = to_mode == KY_EGRESS_MODE_TAGGED ? bridge.vlan : std::uint16_t{0};
                        const Exits flooded = expected(from, bridge.vlan);
                        ASSERT_NO_FATAL_FAILURE(expect_exits(software_switch, from,
                                                             header(from, mac_of(to), bridge.vlan),
                                                             bridge.learns ? Exits{{to, out}} : flooded));
                    }
    }

    std::mt19937_64 random;
    std::size_t delivered = 0; ///< frames that came out
    std::string description;
    std::map<std::uint16_t, Bridge> bridges;
    std::map<std::uint32_t, std::uint32_t> plain_members; ///< of plain_vlan, mode by port
};

/// KYBRIDGE_CONFIGURATIONS sets how many; 10000 take well under two minutes.
TEST_F(Forwarding, EveryFrameLeavesAtTheOtherVirtualPortsOfItsBridgeAndNowhereElse)
{
    const char *const wanted = std::getenv("KYBRIDGE_CONFIGURATIONS");
    const unsigned long configurations = wanted != nullptr ? std::strtoul(wanted, nullptr, 10) : 2000;

    ASSERT_EQ(start(max_bridges, 16), 0U);
    sim::Switch software_switch;
    for (const std::uint32_t port : ports)
        ASSERT_EQ(announce(port), 0U);
    for (unsigned long i = 0; i < configurations; ++i) {
        for (unsigned steps = 0; steps < 4; ++steps)
            ASSERT_NO_FATAL_FAILURE(change());
        const std::uint32_t port = pick_from(ports);
        device.ports.find(port)->pvid = pick(4) == 0 ? std::nullopt : std::optional(pick_from(user_vlans));
        if (plain_members.erase(port) != 0)
            device.vlans.leave(port, plain_vlan);
        else
            device.vlans.join(port, plain_vlan, plain_members[port] = pick(2));
        software_switch.fdb().flush();
        ASSERT_NO_FATAL_FAILURE(check_every_frame(software_switch)) << "configuration " << i;
    }
    EXPECT_GT(delivered, 10 * configurations) << "too little was attached to show anything";
}

} // namespace
