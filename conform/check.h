/// What a check is made of: its row in a table, what it finds, and what it knows while it runs.
#ifndef KYBRIDGE_CONFORM_CHECK_H
#define KYBRIDGE_CONFORM_CHECK_H

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "conform/model/symbols.h"
#include "kybridge/ky_sdk.h"

namespace conform {

/// Options of a run, with their defaults filled in.
struct Settings {
    std::vector<std::string> sdk;
    std::string module;
    std::string setup;
    std::vector<std::uint32_t> ports;
    std::uint8_t swid = 0;
    unsigned seconds = 0;
    unsigned time_limit = 0;
    std::uint64_t seed = 0;
    std::string only;
};

/// Thrown by a check that found something.
struct Finding {
    std::string answered;
    std::string expected;
};

/// Thrown by a check that has nothing to look at.
struct NotRun {
    std::string why;
};

/// One check. It runs in a process of its own, with the SDK opened and set up anew.
struct Check {
    const char *id;
    const char *purpose;
    /// What the module makes of an SDK that does not pass.
    const char *consequence;
    /// Id of a check that must hold for this one to tell anything; empty: none.
    const char *needs;
    /// Returns when all is well, with what is worth a remark, or throws.
    std::string (*run)(const Settings &settings);
};

/// Every check of the services by subject, in the order in which they run.
std::span<const Check> symbol_checks();
std::span<const Check> platform_checks();
std::span<const Check> region_checks();
std::span<const Check> binding_checks();
std::span<const Check> group_checks();
std::span<const Check> port_checks();
std::span<const Check> vlan_checks();
/// Those of the module on the services. They run when every check of the services holds.
std::span<const Check> module_checks();

/// Says what is called next: a finding, a crash or a hang is told with it. @param text the call with its arguments
void calling(const std::string &text);

/// Fails the check with the last call. @param holds whether all is well
inline void expect(bool holds, const std::string &answered, const std::string &expected)
{
    if (!holds)
        throw Finding{answered, expected};
}

/// Fails the check if the last call answered anything else.
inline void expect_status(ky_status_t answered, ky_status_t expected = KY_STATUS_SUCCESS)
{
    expect(answered == expected, fmt::format("{}", answered), fmt::format("{}", expected));
}

/// Cleans up after a check. What goes wrong then is for the check that looks for it.
template <typename Body> void clean_up(Body body) noexcept
{
    try {
        body();
    } catch (...) { // NOLINT(bugprone-empty-catch)
    }
}

} // namespace conform

#endif
