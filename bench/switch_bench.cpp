/// What the software switch adds to a frame: its way through the switch beside its *floor*, which parses the frame,
/// looks its two stations up in a hash table and writes down where it leaves, all else known beforehand.
#include <cstdlib>
#include <new>
#include <unordered_map>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "kybridge/ky_bridge.h"
#include "sdk/sdk.h"
#include "sim/switch.h"

namespace {

std::uint64_t allocations = 0; ///< of operator new, so far

constexpr sim::Mac station_a = {{0x02, 0, 0, 0, 0, 0x0a}};
constexpr sim::Mac station_b = {{0x02, 0, 0, 0, 0, 0x0b}};

struct Scene {
    std::uint32_t from = 0, to = 0; ///< logical ports of the virtual ports that were attached last
    sim::Bytes frame;               ///< of 64 bytes, from one to the other
};

/// Bridges of two virtual ports each, spread over pairs of ports, attached through the module.
Scene attach(std::uint16_t virtual_ports, std::uint16_t pairs_of_ports)
{
    sdk::Device &device = sdk::device();
    device.reset();
    device.journal.keep(0);
    swid_validation_func_ptr = sdk_validate_swid;
    ky_bridge_log_verbosity_level_set(0);
    const ky_bridge_init_params_t params = {KY_BRIDGE_SDK_MODE_802_1D,
                                            {{KY_VIRTUAL_PORTS_MAX, KY_VIRTUAL_PORTS_MAX, 0}}};
    ky_bridge_init(&params);
    for (std::uint32_t log_port = 0x10001; log_port <= 0x10000U + pairs_of_ports * 2U; ++log_port) {
        device.ports.ports[log_port];
        ky_port_event_t event{};
        event.log_port = log_port;
        device.adviser.deliver(KY_ADVISER_EVENT_PORT_ADD_INTO_SWID, event);
    }
    Scene scene;
    for (std::uint16_t i = 0; i < virtual_ports / 2; ++i) {
        std::uint16_t bridge = 0;
        const auto vlan = static_cast<std::uint16_t>(1000 + i);
        scene.from = 0x10001U + i % pairs_of_ports * 2U;
        scene.to = scene.from + 1;
        ky_bridge_set(KY_ACCESS_CMD_CREATE, &bridge, 0);
        ky_bridge_set_learning_mode(bridge, KY_FDB_LEARN_MODE_AUTO_LEARN, 0);
        for (const std::uint32_t log_port : {scene.from, scene.to})
            ky_bridge_port_set(KY_ACCESS_CMD_ADD, bridge, log_port, vlan, KY_EGRESS_MODE_TAGGED, 0);
        scene.frame = sim::build({station_b, station_a, sim::Tag{.vid = vlan}, 0x0800}, sim::Bytes(46));
    }
    return scene;
}

void forward(benchmark::State &state)
{
    const Scene scene = attach(static_cast<std::uint16_t>(state.range(0)), static_cast<std::uint16_t>(state.range(1)));
    sim::Switch forwarder;
    sim::Header header;
    sim::parse(scene.frame, header);
    std::swap(header.source, header.destination);
    forwarder.forward(scene.to, sim::build(header, sim::Bytes(46))); // the destination is known from here on
    if (forwarder.forward(scene.from, scene.frame).transmissions.size() != 1)
        state.SkipWithError("the frame does not leave at one port");
    const std::uint64_t before = allocations;
    for (auto iteration : state) // NOLINT(clang-analyzer-deadcode.DeadStores): counted, not looked at
        benchmark::DoNotOptimize(forwarder.decide(scene.from, scene.frame, scene.frame.size()).exits.data());
    state.counters["allocations"] = static_cast<double>(allocations - before);
    ky_bridge_deinit();
}

void floor(benchmark::State &state)
{
    const sim::Bytes frame = sim::build({station_b, station_a, sim::Tag{.vid = 100}, 0x0800}, sim::Bytes(46));
    const auto key = [](const sim::Mac &mac) {
        std::uint64_t number = 100;
        for (const std::uint8_t byte : mac.bytes)
            number = number << 8 | byte;
        return number;
    };
    std::unordered_map<std::uint64_t, std::uint32_t> stations = {{key(station_a), 1}, {key(station_b), 2}};
    sim::Exit exit;
    for (auto iteration : state) { // NOLINT(clang-analyzer-deadcode.DeadStores): counted, not looked at
        sim::Header header;
        sim::parse(frame, header);
        stations[key(header.source)] = 1;
        exit = {.port = stations.find(key(header.destination))->second, .tag = header.tag, .size = frame.size()};
        benchmark::DoNotOptimize(exit);
    }
}

} // namespace

BENCHMARK(floor)->Name("frame|floor");
BENCHMARK(forward)
    ->Name("frame|switch")
    ->ArgNames({"virtual_ports", "pairs_of_ports"})
    ->Args({2, 1})
    ->Args({512, 1})
    ->Args({512, 16});

[[gnu::noinline]] void *operator new(std::size_t size)
{
    ++allocations;
    if (void *memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void *memory) noexcept
{
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
