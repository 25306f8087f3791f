// What the software switch is made of, and scripts with frames do not show: tables at random, texts of addresses.
#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "sdk/sdk.h"
#include "sim/fdb.h"
#include "sim/frame.h"

namespace {

using namespace sim;

TEST(FrameTest, AddressText)
{
    EXPECT_EQ(parse_mac("02:00:00:00:00:0a"), (Mac{{0x02, 0, 0, 0, 0, 0x0a}}));
    EXPECT_EQ(parse_mac("FF-ff-FF-ff-FF-ff"), (Mac{{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}}));
    for (const char *text : {"", "02:00:00:00:00", "02:00:00:00:00:0a:", "02:00:00:00:00:0g", "02:00:00:00:00-0a",
                             "02.00.00.00.00.0a", "02:00:00:00:00: a", "02:00:00:00:00:-1", "2:000:00:00:00:0a"})
        EXPECT_EQ(parse_mac(text), std::nullopt) << text;
}

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

} // namespace
