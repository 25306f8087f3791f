// The software switch: every decision of its pipeline, on a device that is programmed by hand.
#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "sim/frame.h"
#include "sim/switch.h"
#include "sim/trace.h"

namespace {

using namespace sim;
using sdk::Direction;
using sdk::RstpState;

const Mac station_a = {{0x02, 0, 0, 0, 0, 0x0a}};
const Mac station_b = {{0x02, 0, 0, 0, 0, 0x0b}};
const Mac broadcast = {{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}};
const Bytes payload(46, 0x5a);

Bytes frame_of(std::optional<Tag> tag, const Mac &source = station_a, const Mac &destination = broadcast)
{
    return build({destination, source, tag, 0x0800}, payload);
}

// ---- Frames ---------------------------------------------------------------------------------------

TEST(FrameTest, AddressText)
{
    EXPECT_EQ(parse_mac("02:00:00:00:00:0a"), station_a);
    EXPECT_EQ(parse_mac("FF-ff-FF-ff-FF-ff"), broadcast);
    EXPECT_EQ(station_a.text(), "02:00:00:00:00:0a");
    for (const char *text : {"", "02:00:00:00:00", "02:00:00:00:00:0a:", "02:00:00:00:00:0g", "02:00:00:00:00-0a",
                             "02.00.00.00.00.0a", "02:00:00:00:00: a", "02:00:00:00:00:-1", "2:000:00:00:00:0a"})
        EXPECT_EQ(parse_mac(text), std::nullopt) << text;
}

TEST(FrameTest, TagIsPushedRewrittenAndPopped)
{
    const Bytes untagged = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0, 0, 0x0a, 0x08, 0x00, 1, 2, 3};
    const Bytes tagged = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0, 0,
                          0x0a, 0x81, 0x00, 0xb0, 0x64, 8,    0, 1, 2, 3}; // PCP 5, DEI, VLAN 100
    const Bytes double_tagged = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2,    0, 0, 0, 0, 0x0a, 0x81,
                                 0x00, 0xe0, 0x07, 0x81, 0x00, 0xb0, 0x64, 8, 0, 1, 2, 3}; // PCP 7, VLAN 7 outside
    const Tag tag{.pcp = 5, .dei = true, .vid = 100};
    const Tag outer{.pcp = 7, .dei = false, .vid = 7};

    const auto padded = [](Bytes frame) {
        frame.resize(60);
        return frame;
    };
    Header header;
    ASSERT_EQ(parse(untagged, header), FrameFault::none);
    EXPECT_EQ(header, (Header{broadcast, station_a, std::nullopt, 0x0800}));
    EXPECT_EQ(retag(untagged, header, tag), tagged);
    ASSERT_EQ(parse(tagged, header), FrameFault::none);
    EXPECT_EQ(header, (Header{broadcast, station_a, tag, 0x0800}));
    EXPECT_EQ(retag(tagged, header, std::nullopt), padded(untagged));
    EXPECT_EQ(build(header, Bytes{1, 2, 3}), tagged);
    ASSERT_EQ(parse(double_tagged, header), FrameFault::none);
    EXPECT_EQ(header, (Header{broadcast, station_a, outer, tag_protocol}));
    EXPECT_EQ(retag(double_tagged, header, std::nullopt), padded(tagged));
    EXPECT_EQ(retag(double_tagged, header, outer), double_tagged);
}

// ---- The database of stations ---------------------------------------------------------------------

/// Random stations on three ports, against lists: what is known where, who gives way, and who is forgotten.
TEST(FdbTest, KeepsStationsAsListsWould)
{
    struct Heard {
        std::uint32_t station, port;
        unsigned second;
    };
    std::vector<Heard> model; // by when they were heard
    Fdb fdb(8);
    std::mt19937 random(1);
    std::uint64_t evictions = 0;
    const auto stations_of = [&model](std::uint32_t port) { return std::ranges::count(model, port, &Heard::port); };
    for (unsigned second = 0, step = 0; step < 20000; ++step) {
        if (random() % 4 == 0) {
            fdb.advance(std::chrono::seconds(1));
            ++second;
            std::erase_if(model, [second](const Heard &heard) { return second - heard.second >= 10; });
        }
        if (step == 0 || random() % 500 == 0) {
            fdb.set_ageing(std::chrono::seconds(10));
            fdb.flush(1);
            std::erase_if(model, [](const Heard &heard) { return heard.port == 1; });
        }
        // Port 0 offers many stations, the others few.
        const std::uint32_t port = static_cast<std::uint32_t>(random() % 3);
        const std::uint32_t station = static_cast<std::uint32_t>(random() % (port == 0 ? 16 : 2) + 16 * port);
        const std::uint32_t heard_at = random() % 16 == 0 ? (port + 1) % 3 : port;
        const bool is_known = std::erase_if(model, [&](const Heard &heard) { return heard.station == station; }) != 0;
        const Learning learning = fdb.learn(1, {{2, 0, 0, 0, 0, static_cast<std::uint8_t>(station)}}, heard_at);
        EXPECT_EQ(is_known, learning.result == Learning::Result::known || learning.result == Learning::Result::moved);
        if (!is_known && model.size() == 8) {
            ASSERT_EQ(learning.result, Learning::Result::replaced);
            for (const std::uint32_t other : {0U, 1U, 2U})
                EXPECT_GE(stations_of(learning.previous_port), stations_of(other));
            model.erase(std::ranges::find(model, learning.previous_port, &Heard::port));
            ++evictions;
        }
        model.push_back({station, heard_at, second});

        std::vector<Fdb::Entry> expected;
        for (const Heard &heard : model)
            expected.push_back({1,
                                {{2, 0, 0, 0, 0, static_cast<std::uint8_t>(heard.station)}},
                                heard.port,
                                std::chrono::seconds(second - heard.second)});
        std::ranges::sort(expected, {}, &Fdb::Entry::mac);
        ASSERT_EQ(fdb.entries(), expected) << "step " << step;
    }
    EXPECT_EQ(fdb.evictions(), evictions);
    EXPECT_GT(evictions, 100U);
}

// ---- The switch -----------------------------------------------------------------------------------

/// Two tenants: north, east and south share bridge 1 by VLAN 100, south untagged; west and east share
/// bridge 2 by VLAN 200. Internal VLANs are 1 and 2.
class SwitchTest : public testing::Test {
protected:
    static constexpr std::uint32_t north = 0x10001, east = 0x10002, south = 0x10003, west = 0x10004;

    SwitchTest()
    {
        device.acl.regions[1].size = device.acl.regions[2].size = 16;
        device.acl.acls[1] = {Direction::ingress, 1, 0};
        device.acl.acls[2] = {Direction::egress, 2, 0};
        for (const std::uint32_t port : {north, east, south, west}) {
            device.ports.ports[port];
            device.acl.bindings[{port, Direction::ingress}] = {1, 0};
            device.acl.bindings[{port, Direction::egress}] = {2, 0};
        }
        egress_rules().write(1, rule(0, 0, 1, 100));
        egress_rules().write(2, rule(0, 0, 2, 200));
        attach(1, north, 100, 1, KY_EGRESS_MODE_TAGGED);
        attach(2, east, 100, 1, KY_EGRESS_MODE_TAGGED);
        attach(3, south, 100, 1, KY_EGRESS_MODE_UNTAGGED);
        attach(4, west, 200, 2, KY_EGRESS_MODE_TAGGED);
        attach(5, east, 200, 2, KY_EGRESS_MODE_TAGGED);
    }

    static sdk::Rule rule(std::uint32_t port, std::uint32_t mask, std::uint16_t vlan, std::uint16_t new_vlan,
                          bool dont_learn = false)
    {
        sdk::Rule made;
        made.key_log_port = port;
        made.log_port_mask = mask;
        made.key_vlan = vlan;
        made.vlan_mask = 0xFFFF;
        made.new_vlan = new_vlan;
        made.dont_learn = dont_learn;
        return made;
    }

    void attach(std::uint16_t offset, std::uint32_t port, std::uint16_t vlan, std::uint16_t internal,
                std::uint32_t mode)
    {
        ingress_rules().write(offset, rule(port, 0xFFFFFFFF, vlan, internal));
        device.vlans.join(port, vlan, mode);
        device.vlans.join(port, internal, mode);
    }

    sdk::RuleTable &ingress_rules() { return device.acl.regions[1].rules; }
    sdk::RuleTable &egress_rules() { return device.acl.regions[2].rules; }
    sdk::Port &port(std::uint32_t log_port) { return device.ports.ports[log_port]; }

    static std::string name(std::uint32_t log_port)
    {
        static const std::map<std::uint32_t, std::string> names{
            {north, "north"}, {east, "east"}, {south, "south"}, {west, "west"}};
        return names.at(log_port);
    }

    /// Where a frame leaves and how: "east 100 south untagged".
    std::string sent(std::uint32_t from, const Bytes &frame)
    {
        std::string text;
        for (const Transmission &transmission : forwarder.forward(from, frame).transmissions) {
            Header header;
            EXPECT_EQ(parse(transmission.frame, header), FrameFault::none);
            text += (text.empty() ? "" : " ") + name(transmission.port) + " " +
                    (header.tag ? std::to_string(header.tag->vid) : "untagged");
        }
        return text;
    }

    /// Why a frame is dropped, on its way in or at the only port that it was meant for.
    Drop dropped(std::uint32_t from, const Bytes &frame)
    {
        const Outcome outcome = forwarder.forward(from, frame);
        EXPECT_TRUE(outcome.transmissions.empty());
        return outcome.exits.size() == 1 ? outcome.exits[0].drop : outcome.drop;
    }

    struct Reset {
        Reset() { sdk::device().reset(); }
    } reset; ///< before the switch takes its hook
    sdk::Device &device = sdk::device();
    Switch forwarder{4};
};

TEST_F(SwitchTest, VlanComesFromTheTagElseFromThePvid)
{
    port(south).pvid = 100;
    port(north).pvid = 100;
    EXPECT_EQ(forwarder.forward(south, frame_of(std::nullopt)).transmissions.at(0).frame, frame_of(Tag{.vid = 100}));

    const Outcome priority = forwarder.forward(north, frame_of(Tag{.pcp = 6, .dei = true, .vid = 0}));
    EXPECT_EQ(priority.transmissions.at(0).frame, frame_of(Tag{.pcp = 6, .dei = true, .vid = 100}));
    EXPECT_EQ(priority.transmissions.at(1).frame, frame_of(std::nullopt));
}

TEST_F(SwitchTest, SizesAtTheLimits)
{
    const Bytes whole = build({broadcast, station_a, Tag{.vid = 100}, 0x0800}, Bytes(9300));
    const auto first = [&whole](std::ptrdiff_t size) { return Bytes(whole.begin(), whole.begin() + size); };

    EXPECT_EQ(dropped(north, first(13)), Drop::runt);
    EXPECT_EQ(dropped(north, first(17)), Drop::cut_tag);
    EXPECT_EQ(sent(north, first(18)), "east 100 south untagged");
    EXPECT_EQ(sent(north, first(9216)), "east 100 south untagged");
    EXPECT_EQ(dropped(north, first(9217)), Drop::oversized);

    // The tag that it would get makes a frame too long.
    port(south).pvid = 100;
    const Header untagged{broadcast, station_a, std::nullopt, 0x0800};
    device.vlans.leave(east, 100);
    device.vlans.leave(east, 1);
    EXPECT_EQ(sent(south, build(untagged, Bytes(9212 - 14))), "north 100");
    EXPECT_EQ(dropped(south, build(untagged, Bytes(9213 - 14))), Drop::oversized);
}

TEST_F(SwitchTest, DropsOnTheWayIn)
{
    const Tag tag{.vid = 100};
    EXPECT_EQ(dropped(0x10009, frame_of(tag)), Drop::unknown_port);
    EXPECT_EQ(dropped(north, frame_of(std::nullopt)), Drop::no_vlan);
    EXPECT_EQ(dropped(north, frame_of(Tag{.vid = 0})), Drop::no_vlan);
    EXPECT_EQ(dropped(north, frame_of(Tag{.vid = 200})), Drop::not_member);
    EXPECT_EQ(forwarder.fdb().size(), 0U);

    port(north).rstp_state = RstpState::discarding;
    EXPECT_EQ(dropped(north, frame_of(tag)), Drop::discarding);
    EXPECT_EQ(forwarder.fdb().size(), 0U);
    port(north).rstp_state = RstpState::learning;
    EXPECT_EQ(dropped(north, frame_of(tag)), Drop::learning);
    EXPECT_EQ(forwarder.fdb().find(1, station_a), north);
    port(north).rstp_state = RstpState::forwarding;
    port(north).link_up = false;
    EXPECT_EQ(dropped(north, frame_of(tag)), Drop::link_down);
    port(north).link_up = true;
    EXPECT_EQ(dropped(north, frame_of(tag, station_b, station_a)), Drop::filtered);
}

TEST_F(SwitchTest, DropsOnTheWayOut)
{
    const Bytes to_b = frame_of(Tag{.vid = 100}, station_a, station_b);
    sent(east, frame_of(Tag{.vid = 100}, station_b)); // known from here on
    ASSERT_EQ(sent(north, to_b), "east 100");

    port(east).rstp_state = RstpState::discarding;
    EXPECT_EQ(dropped(north, to_b), Drop::discarding);
    port(east).rstp_state = RstpState::learning;
    EXPECT_EQ(dropped(north, to_b), Drop::learning);
    EXPECT_EQ(sent(north, frame_of(Tag{.vid = 100})), "south untagged");
    port(east).rstp_state = RstpState::forwarding;
    port(east).link_up = false; // behind the switch's back: the FDB entry stays
    EXPECT_EQ(dropped(north, to_b), Drop::link_down);
    port(east).link_up = true;

    device.vlans.leave(east, 100); // it stays a member of the internal VLAN
    EXPECT_EQ(dropped(north, to_b), Drop::not_member);
    device.acl.bindings.erase({east, Direction::egress}); // so the frame keeps the internal VLAN
    EXPECT_EQ(sent(north, to_b), "east 1");
}

TEST_F(SwitchTest, TheFirstMatchingRuleSetsTheVlan)
{
    device.vlans.join(north, 4, KY_EGRESS_MODE_TAGGED);
    device.vlans.join(west, 4, KY_EGRESS_MODE_TAGGED);
    device.vlans.join(west, 40, KY_EGRESS_MODE_TAGGED);
    const Bytes frame = frame_of(Tag{.vid = 100});

    ingress_rules().write(6, rule(north, 0xFFFFFFFF, 100, 4));
    EXPECT_EQ(sent(north, frame), "east 100 south untagged") << "a later rule must not win";
    ingress_rules().erase(1);
    EXPECT_EQ(sent(north, frame), "west 4");
    egress_rules().write(7, rule(west, 0xFFFFFFFF, 4, 40));
    EXPECT_EQ(sent(north, frame), "west 40");
    ingress_rules().erase(6);
    EXPECT_EQ(sent(north, frame), "east 100 south untagged") << "by plain membership of VLAN 100";
}

/// Rules of three pairs of masks come and go at random; trying each in offset order finds the same.
TEST(RuleTableTest, FindsTheFirstMatch)
{
    const std::vector<std::pair<std::uint32_t, std::uint16_t>> masks = {{0xFFFFFFFF, 0xFFFF}, {0, 0xFFFF}, {0xFF, 0}};
    sdk::RuleTable rules;
    std::mt19937 random(1);
    const auto below = [&random](unsigned limit) { return static_cast<std::uint16_t>(random() % limit); };
    for (unsigned step = 0; step < 5000; ++step) {
        const auto offset = below(40);
        const auto [port_mask, vlan_mask] = masks[below(3)];
        if (below(3) == 0)
            rules.erase(offset);
        else
            rules.write(offset, {.key_log_port = below(8),
                                 .log_port_mask = port_mask,
                                 .key_vlan = below(8),
                                 .vlan_mask = vlan_mask,
                                 .new_vlan = offset});
        const std::uint32_t port = below(8);
        const std::uint16_t vlan = below(8);
        const auto expected =
            std::ranges::find_if(rules, [&](const auto &entry) { return entry.second.matches(port, vlan); });
        const auto *found = rules.first_match(port, vlan);
        ASSERT_EQ(found, expected == rules.end() ? nullptr : &*expected) << "step " << step;
    }
}

TEST_F(SwitchTest, LearnsInTheVlanThatTheRuleSet)
{
    const Bytes to_a = frame_of(Tag{.vid = 100}, station_b, station_a);
    sent(north, frame_of(Tag{.vid = 100}));
    EXPECT_EQ(forwarder.fdb().entries(), (std::vector<Fdb::Entry>{{1, station_a, north, {}}}));
    EXPECT_EQ(sent(east, to_a), "north 100");
    EXPECT_EQ(sent(east, frame_of(Tag{.vid = 200}, station_b, station_a)), "west 200") << "another bridge: unknown";

    const Outcome moved = forwarder.forward(east, frame_of(Tag{.vid = 100}));
    EXPECT_EQ(moved.learn->result, Learning::Result::moved);
}

TEST_F(SwitchTest, DoesNotLearn)
{
    const Mac group = {{0x03, 0, 0, 0, 0, 0x0a}};
    EXPECT_EQ(forwarder.forward(north, frame_of(Tag{.vid = 100}, group)).learn->result,
              Learning::Result::multicast_source);
    EXPECT_EQ(forwarder.forward(north, frame_of(Tag{.vid = 100}, Mac{})).learn->result, Learning::Result::zero_source);
    ingress_rules().write(1, rule(north, 0xFFFFFFFF, 100, 1, true));
    EXPECT_EQ(forwarder.forward(north, frame_of(Tag{.vid = 100})).learn->result, Learning::Result::forbidden);
    EXPECT_EQ(forwarder.fdb().size(), 0U);
}

TEST_F(SwitchTest, FlushesWhatAPortLeftBehind)
{
    const auto learn_all = [this] {
        sent(east, frame_of(Tag{.vid = 100}));
        sent(east, frame_of(Tag{.vid = 200}));
        sent(north, frame_of(Tag{.vid = 100}, station_b));
    };
    const Fdb::Entry bridge_1{1, station_a, east, {}}, bridge_2{2, station_a, east, {}}, other{1, station_b, north, {}};

    learn_all();
    ASSERT_EQ(forwarder.fdb().entries(), (std::vector{bridge_1, other, bridge_2}));
    device.vlans.leave(east, 1);
    EXPECT_EQ(forwarder.fdb().entries(), (std::vector{other, bridge_2}));

    device.vlans.join(east, 1, KY_EGRESS_MODE_TAGGED);
    learn_all();
    EXPECT_TRUE(forwarder.set_link(east, false));
    EXPECT_EQ(forwarder.fdb().entries(), (std::vector{other}));
    EXPECT_EQ(sent(north, frame_of(Tag{.vid = 100})), "south untagged");
    EXPECT_TRUE(forwarder.set_link(east, true));
    EXPECT_EQ(sent(north, frame_of(Tag{.vid = 100})), "east 100 south untagged");
    EXPECT_FALSE(forwarder.set_link(0x10009, true));
}

TEST_F(SwitchTest, CountsByPort)
{
    port(south).rstp_state = RstpState::discarding;
    forwarder.forward(north, frame_of(Tag{.vid = 100})); // 64 bytes
    forwarder.forward(north, frame_of(Tag{.vid = 200}));

    const Counters &in = forwarder.counters().at(north);
    EXPECT_EQ(in.in.frames, 2U);
    EXPECT_EQ(in.in.bytes, 128U);
    EXPECT_EQ(in.dropped_in[static_cast<std::size_t>(Drop::not_member)], 1U);
    EXPECT_EQ(forwarder.counters().at(east).out.bytes, 64U);
    EXPECT_EQ(forwarder.counters().at(south).dropped_out[static_cast<std::size_t>(Drop::discarding)], 1U);
}

TEST_F(SwitchTest, TraceTellsTheWholeWay)
{
    ingress_rules().write(1, rule(north, 0xFFFFFFFF, 100, 1, true));
    device.vlans.join(west, 1, KY_EGRESS_MODE_TAGGED); // but not VLAN 100
    EXPECT_EQ(trace(forwarder.forward(north, frame_of(Tag{.pcp = 5, .vid = 100})), name),
              "north  02:00:00:00:00:0a > ff:ff:ff:ff:ff:ff, vlan 100 pcp 5, type 0x0800, 64 bytes\n"
              "  port     forwarding\n"
              "  vlan     100, from the tag\n"
              "  ingress  rule 1: vlan 100 -> 1, don't learn\n"
              "  learn    no, the ingress rule forbids it\n"
              "  lookup   broadcast, flooded in vlan 1\n"
              "  > east   egress rule 1: vlan 1 -> 100, sent tagged: vlan 100 pcp 5, 64 bytes\n"
              "  > south  egress rule 1: vlan 1 -> 100, sent untagged, 60 bytes\n"
              "  x west   egress rule 1: vlan 1 -> 100, dropped: the port is no member of vlan 100\n"
              "  sent at 2 ports\n");

    EXPECT_EQ(trace(forwarder.forward(north, Bytes(13)), name),
              "north  not a frame, 13 bytes\n"
              "  dropped: a runt, shorter than the 14 bytes of an Ethernet header\n");
}

} // namespace
