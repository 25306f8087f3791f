/// Instructions, allocations and memory: what does not depend on how busy the machine is.
///
/// Under `valgrind --tool=callgrind --instr-atstart=no` every operation leaves a dump named
/// "group|unit|size|side|verbosity"; run alone, allocations and memory are printed as JSON.
#include <cstdlib>
#include <cstring>
#include <string>

#include <malloc.h>

#include <fmt/format.h>
#include <valgrind/callgrind.h>

#include "bench/cases.h"
#include "bench/floor.h"
#include "bridge/db.h"
#include "kybridge/ky_bridge.h"

namespace {

std::size_t allocations = 0;     ///< calls of malloc and its kin so far
std::size_t allocated_bytes = 0; ///< usable bytes that are outstanding

void count_block(void *memory)
{
    ++allocations;
    allocated_bytes += malloc_usable_size(memory);
}

} // namespace

// Every allocation of the process, complib's and the module's among them, comes through here.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void __libc_free(void *memory);

void *malloc(size_t size)
{
    void *const memory = __libc_malloc(size);
    count_block(memory);
    return memory;
}
void *calloc(size_t count, size_t size)
{
    void *const memory = __libc_calloc(count, size);
    count_block(memory);
    return memory;
}
void free(void *memory)
{
    allocated_bytes -= malloc_usable_size(memory);
    __libc_free(memory);
}
}

namespace {

constexpr int repetitions = 8; ///< of each operation in one dump

void count_instructions(const bench::Case &measured, const char *side, const std::function<void()> &operation,
                        std::uint32_t verbosity)
{
    ky_bridge_log_verbosity_level_set(verbosity);
    bench::floor::log_verbosity = verbosity;
    operation(); // once outside, so that every symbol is bound
    const auto label = fmt::format("{}|{}|{}|{}|{}", measured.group, measured.unit, measured.size, side, verbosity);
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_ZERO_STATS;
    for (int i = 0; i < repetitions; ++i)
        operation();
    CALLGRIND_DUMP_STATS_AT(label.c_str());
    CALLGRIND_STOP_INSTRUMENTATION;
}

void count_all_instructions()
{
    for (const bench::Case &measured : bench::all_cases()) {
        measured.set_up();
        for (const std::uint32_t verbosity : {0U, 3U, 6U}) {
            count_instructions(measured, "floor", measured.floor, verbosity);
            count_instructions(measured, "module", measured.module, verbosity);
        }
        ky_bridge_log_verbosity_level_set(3);
    }
    bench::stop();
}

/// Bytes that the records, tables and offsets of a full-size database take by themselves.
std::size_t record_bytes(std::uint32_t bridges, std::uint32_t virtual_ports, std::uint32_t log_ports)
{
    return sizeof(bridge_db_t) + bridges * (sizeof(bridge_db_bridge_t) + sizeof(bridge_acl_offset_t)) +
           virtual_ports * (sizeof(bridge_db_virtual_port_t) + sizeof(bridge_acl_offset_t)) +
           KY_VLAN_ID_MAX * sizeof(bridge_db_int_vlan_t) +
           log_ports * (sizeof(bridge_db_log_port_t) + BRIDGE_DB_VLAN_REF_CNT_SIZE);
}

void print_allocations_and_memory()
{
    std::string unexpected;
    for (const bench::Case &measured : bench::all_cases()) {
        measured.set_up();
        measured.module();
        const std::size_t before = allocations;
        measured.module();
        if (allocations != before && !measured.may_allocate)
            unexpected += fmt::format("{}\"{}, {} {}\"", unexpected.empty() ? "" : ", ", measured.group, measured.size,
                                      measured.unit);
    }
    bench::stop();

    constexpr std::uint32_t log_ports = 256;
    const std::size_t before = allocated_bytes;
    bench::fill_completely(log_ports);
    const std::size_t taken = allocated_bytes - before;
    bench::stop();
    fmt::print("{{\"operations_that_allocate\": [{}], \"memory_bytes\": {}, \"record_bytes\": {}}}\n", unexpected,
               taken, record_bytes(KY_VLAN_ID_MAX, KY_VIRTUAL_PORTS_MAX, log_ports));
}

} // namespace

int main()
{
    if (RUNNING_ON_VALGRIND != 0)
        count_all_instructions();
    else
        print_allocations_and_memory();
    return 0;
}
