// The run: which checks, in which order, and what becomes of those that need others.
#include "conform/ky_conform.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>
#include <random>
#include <string_view>

#include "conform/check.h"
#include "conform/child.h"
#include "conform/libraries.h"

namespace conform {

namespace {

constexpr const char *module_soname = "libkybridge.so.1";
constexpr const char *waits_for_services = "a check of the services does not hold";

const std::vector<Check> &service_checks()
{
    static const std::vector<Check> all = [] {
        std::vector<Check> joined;
        for (const auto &checks : {symbol_checks(), platform_checks(), port_checks(), vlan_checks(), region_checks(),
                                   binding_checks(), group_checks()})
            joined.insert(joined.end(), checks.begin(), checks.end());
        return joined;
    }();
    return all;
}

const std::vector<Check> &all_checks()
{
    static const std::vector<Check> all = [] {
        std::vector<Check> joined = service_checks();
        joined.insert(joined.end(), module_checks().begin(), module_checks().end());
        return joined;
    }();
    return all;
}

bool is_module_check(std::string_view id)
{
    const auto checks = module_checks();
    return std::any_of(checks.begin(), checks.end(), [id](const Check &check) { return check.id == id; });
}

const Check *find_check(std::string_view id)
{
    const auto found =
        std::find_if(all_checks().begin(), all_checks().end(), [id](const Check &check) { return check.id == id; });
    return found == all_checks().end() ? nullptr : &*found;
}

/// Whether a check is wanted when `only` one is: it itself, what it needs, and for the module all of the services.
bool is_wanted(const Check &check, const std::string &only)
{
    if (only.empty() || (is_module_check(only) && !is_module_check(check.id)))
        return true;
    for (const Check *needed = find_check(only); needed != nullptr; needed = find_check(needed->needs))
        if (needed->id == std::string_view(check.id))
            return true;
    return false;
}

/// @throws std::invalid_argument when an option is wrong
Settings settings_of(const ky_conform_options_t &options)
{
    Settings settings;
    settings.sdk.assign(options.sdk, options.sdk + options.sdk_count);
    settings.module = options.module != nullptr ? options.module : module_soname;
    settings.setup = options.setup != nullptr ? options.setup : "";
    if (options.ports != nullptr)
        settings.ports.assign(options.ports, options.ports + options.port_count);
    else
        settings.ports = {0x10001, 0x10002, 0x10003, 0x10004};
    settings.swid = options.swid;
    settings.seconds = options.seconds != 0 ? options.seconds : 10;
    settings.time_limit = options.time_limit != 0 ? options.time_limit : 20;
    settings.seed = options.seed != 0 ? options.seed : std::random_device()();
    settings.only = options.only != nullptr ? options.only : "";

    std::vector<std::uint32_t> sorted = settings.ports;
    std::sort(sorted.begin(), sorted.end());
    if (sorted.size() < 2)
        throw std::invalid_argument(fmt::format("{} ports given, expected 2 or more", sorted.size()));
    if (const auto twice = std::adjacent_find(sorted.begin(), sorted.end()); twice != sorted.end())
        throw std::invalid_argument(fmt::format("port 0x{:X} is given twice, expected different ones", *twice));
    if (!settings.only.empty() && find_check(settings.only) == nullptr)
        throw std::invalid_argument(
            fmt::format("there is no check '{}'; --list tells those that there are", settings.only));
    return settings;
}

class Run {
public:
    Run(Settings settings, ky_conform_report_t report, void *context)
        : settings_(std::move(settings)), report_(report), context_(context)
    {
    }

    /// Finds out whether anything can be run. @return what is in the way; empty: nothing
    std::string prepare() const
    {
        const Outcome outcome = run_in_child(
            [this] {
                open_sdk(settings_);
                expect_module(settings_);
                return "";
            },
            settings_.time_limit);
        if (outcome.kind == Outcome::Kind::holds)
            return "";
        std::string error = fmt::format("{}: {}; expected: {}", outcome.called, outcome.answered, outcome.expected);
        if (outcome.answered.find("undefined symbol: ky_bridge_") != std::string::npos)
            error += ". An SDK that calls the module finds it by dlsym(RTLD_DEFAULT, ...) when it needs it, "
                     "or is linked with it";
        return error;
    }

    /// @return whether everything holds
    bool run_all()
    {
        for (const Check &check : all_checks())
            if (is_wanted(check, settings_.only))
                run(check);
        return failed_ == 0;
    }

private:
    void run(const Check &check)
    {
        Outcome outcome;
        outcome.kind = Outcome::Kind::not_run;
        outcome.remark = why_not(check);
        if (outcome.remark.empty())
            outcome = run_in_child(
                [&] {
                    open_sdk(settings_);
                    return check.run(settings_);
                },
                settings_.time_limit + (is_module_check(check.id) ? settings_.seconds : 0));
        if (outcome.kind == Outcome::Kind::fails)
            ++failed_;
        holds_[check.id] = outcome.kind == Outcome::Kind::holds;
        tell(check, outcome);
    }

    /// Why a check cannot tell anything; empty: it can.
    std::string why_not(const Check &check) const
    {
        if (failed_ != 0 && is_module_check(check.id) && !is_module_failing())
            return waits_for_services;
        const auto needed = holds_.find(check.needs);
        return needed == holds_.end() || needed->second ? "" : fmt::format("needs {}", check.needs);
    }

    /// Whether the services hold, and what failed are checks of the module.
    bool is_module_failing() const
    {
        return std::all_of(service_checks().begin(), service_checks().end(), [this](const Check &check) {
            const auto result = holds_.find(check.id);
            return result == holds_.end() || result->second;
        });
    }

    void tell(const Check &check, const Outcome &outcome) const
    {
        const bool fails = outcome.kind == Outcome::Kind::fails;
        const auto if_fails = [fails](const char *text) { return fails ? text : ""; };
        ky_conform_result_t result = {};
        result.id = check.id;
        result.purpose = check.purpose;
        result.outcome = fails                                    ? KY_CONFORM_FAILS
                         : outcome.kind == Outcome::Kind::not_run ? KY_CONFORM_NOT_RUN
                                                                  : KY_CONFORM_HOLDS;
        result.called = if_fails(outcome.called.c_str());
        result.answered = if_fails(outcome.answered.c_str());
        result.expected = if_fails(outcome.expected.c_str());
        result.consequence = if_fails(check.consequence);
        result.remark = outcome.remark.c_str();
        result.output = if_fails(outcome.output.c_str());
        result.seconds = outcome.seconds;
        report_(&result, context_);
    }

    Settings settings_;
    ky_conform_report_t report_;
    void *context_;
    std::map<std::string, bool> holds_; ///< by id, of those that were reported
    std::size_t failed_ = 0;
};

} // namespace
} // namespace conform

int ky_conform_run(const ky_conform_options_t *options, ky_conform_report_t report, void *context, char *error,
                   size_t error_size)
{
    const auto cannot = [&](const char *why) {
        static_cast<void>(std::snprintf(error, error_size, "%s", why));
        return 2;
    };
    try {
        conform::Run run(conform::settings_of(*options), report, context);
        if (const std::string why = run.prepare(); !why.empty())
            return cannot(why.c_str());
        return run.run_all() ? 0 : 1;
    } catch (const std::exception &failure) {
        return cannot(failure.what());
    }
}

int ky_conform_describe(size_t number, const char **id, const char **purpose)
{
    const auto &checks = conform::all_checks();
    if (number >= checks.size())
        return 1;
    *id = checks[number].id;
    *purpose = checks[number].purpose;
    return 0;
}
