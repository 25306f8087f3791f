/// Times of the module's operations and of the floor's, side by side in one run, at verbosity 3.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include <malloc.h>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "bench/cases.h"
#include "bridge/db.h"
#include "kybridge/ky_bridge.h"

namespace {

void register_side(const bench::Case &measured, const char *side, const std::function<void()> &operation)
{
    const auto name = fmt::format("{}|{}|{}|{}", measured.group, measured.unit, measured.size, side);
    benchmark::RegisterBenchmark(name.c_str(), [measured, operation](benchmark::State &state) {
        measured.set_up();
        for (auto iteration : state) // NOLINT(clang-analyzer-deadcode.DeadStores): counted, not looked at
            operation();
    });
}

/// The memory that a start at full size takes, touched for the first time: what no start can do without.
void touch_memory_of_a_start()
{
    const auto touch = [](std::size_t size) {
        void *const memory = std::malloc(size);
        benchmark::DoNotOptimize(std::memset(memory, 1, size)); // zeroes would be taken from calloc, untouched
        return std::unique_ptr<void, decltype(&std::free)>(memory, &std::free);
    };
    const auto database = touch(sizeof(bridge_db_t));
    const auto bridges = touch(KY_VLAN_ID_MAX * sizeof(bridge_db_bridge_t));
    const auto virtual_ports = touch(KY_VIRTUAL_PORTS_MAX * sizeof(bridge_db_virtual_port_t));
    const auto int_vlans = touch(KY_VLAN_ID_MAX * sizeof(bridge_db_int_vlan_t));
    const auto log_ports = touch(256 * sizeof(bridge_db_log_port_t));
    const auto ingress_offsets = touch(KY_VIRTUAL_PORTS_MAX * sizeof(bridge_acl_offset_t));
    const auto egress_offsets = touch(KY_VLAN_ID_MAX * sizeof(bridge_acl_offset_t));
}

} // namespace

int main(int argc, char **argv)
{
    // Large blocks come fresh from the system each time, as at boot, so that a start touches its memory first.
    mallopt(M_MMAP_THRESHOLD, 32 * 1024);

    for (const bench::Case &measured : bench::all_cases()) {
        register_side(measured, "module", measured.module);
        register_side(measured, "floor", measured.floor);
    }
    const bench::Case start_stop = {"start + stop at full size",
                                    "bridges",
                                    KY_VLAN_ID_MAX,
                                    false,
                                    true,
                                    bench::stop,
                                    [] {
                                        bench::start();
                                        bench::stop();
                                    },
                                    touch_memory_of_a_start};
    register_side(start_stop, "module", start_stop.module);
    register_side(start_stop, "floor", start_stop.floor);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    bench::stop();
    return 0;
}
