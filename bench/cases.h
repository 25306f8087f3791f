/// The operations that are measured: each the module's own, with the floor's beside it, at every size.
#ifndef KYBRIDGE_BENCH_CASES_H
#define KYBRIDGE_BENCH_CASES_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

struct Case {
    std::string group;            ///< the operation, for example "add + delete, shared"
    std::string unit;             ///< what `size` counts
    std::uint32_t size;           ///< how many there are of it
    bool is_query;                ///< reads only
    bool may_allocate;            ///< whether the work itself asks for memory
    std::function<void()> set_up; ///< starts the module and builds the state that both operations leave as it was
    std::function<void()> module; ///< the operation once, through the module's API
    std::function<void()> floor;  ///< the same on the floor
};

/// Every operation at every size.
std::vector<Case> all_cases();

/// Starts the module at full size (4094 bridges, 512 virtual ports, 256 logical ports, or more where asked).
void start(std::uint32_t log_ports = 256);
/// Starts it at full size and uses up every bridge, every virtual port and `log_ports` logical ports.
void fill_completely(std::uint32_t log_ports);
/// Stops it if it runs.
void stop();

} // namespace bench

#endif
