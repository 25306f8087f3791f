#include "conform/edge.h"

#include <csignal>
#include <cstdint>

#include <sys/mman.h>
#include <unistd.h>

#include "conform/check.h"
#include "conform/child.h"

namespace conform {

namespace {

constexpr std::uint8_t canary = 0xA5;
constexpr std::size_t room = 16384; ///< a multiple of every page size up to it, and more than any record

/// Room for a record, and behind it a page that must not be touched. One in a process.
struct Edge {
    std::uint8_t *begin = nullptr;
    std::uint8_t *end = nullptr;
    std::size_t forbidden = 0; ///< bytes behind the end that must not be touched
    std::uint8_t *record = nullptr;
    std::size_t size = 0;
};

Edge &edge()
{
    static Edge the_edge = [] {
        const auto page = std::max<std::size_t>(room, static_cast<std::size_t>(sysconf(_SC_PAGESIZE)));
        void *const mapped = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED || mprotect(static_cast<std::uint8_t *>(mapped) + page, page, PROT_NONE) != 0)
            throw NotRun{"no memory for the records"};
        auto *const begin = static_cast<std::uint8_t *>(mapped);
        return Edge{begin, begin + page, page, begin, 0};
    }();
    return the_edge;
}

/// Notes what was touched, and lets the process end as it would have.
void on_fault(int signal, siginfo_t *info, void * /*context*/)
{
    const Edge &at = edge();
    const auto *const address = static_cast<const std::uint8_t *>(info->si_addr);
    if (address >= at.end && address < at.end + at.forbidden)
        note_touched_edge();
    static_cast<void>(std::signal(signal, SIG_DFL)); // returning repeats the access
}

} // namespace

void *to_edge(const void *bytes, std::size_t size, std::size_t alignment)
{
    Edge &at = edge();
    at.size = size;
    at.record = at.end - (size + alignment - 1) / alignment * alignment;
    std::memset(at.begin, canary, static_cast<std::size_t>(at.end - at.begin));
    return std::memcpy(at.record, bytes, size);
}

void expect_edge_intact()
{
    const Edge &at = edge();
    const auto is_canary = [](std::uint8_t byte) { return byte == canary; };
    expect(std::all_of(at.begin, at.record, is_canary), "bytes before the record were written",
           "the record alone is written");
    expect(std::all_of(at.record + at.size, at.end, is_canary), "bytes behind the record were written",
           "the record alone is written");
}

void watch_edge()
{
    edge();
    static std::uint8_t stack[65536]; // a service that has used up its own
    stack_t alternative = {};
    alternative.ss_sp = stack;
    alternative.ss_size = sizeof stack;
    struct sigaction action = {};
    action.sa_sigaction = on_fault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigaltstack(&alternative, nullptr);
    sigaction(SIGSEGV, &action, nullptr);
    sigaction(SIGBUS, &action, nullptr);
}

} // namespace conform
