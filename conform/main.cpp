// kybridge-conform: tells the supplier of an SDK whether its services keep what the bridge module relies on.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "conform/ky_conform.h"
#include "conform/report.h"

namespace {

constexpr int cannot_run = 2;

struct Options {
    std::vector<std::string> sdk;
    std::string module;
    std::vector<std::uint32_t> ports;
    std::uint32_t swid = 0;
    std::string setup;
    unsigned seconds = 10;
    unsigned time_limit = 20;
    std::uint64_t seed = 0;
    std::string only;
    std::string tap;
    std::string junit;
    bool list = false;
};

void list_checks()
{
    const char *id = nullptr;
    const char *purpose = nullptr;
    for (std::size_t number = 0; ky_conform_describe(number, &id, &purpose) == 0; ++number)
        fmt::print("{:<24} {}\n", id, purpose);
}

/// @return whether the file holds the text now; otherwise says why it does not
bool write_file(const std::string &file, const std::string &text)
{
    std::FILE *const stream = file == "-" ? stdout : std::fopen(file.c_str(), "w");
    bool written = stream != nullptr && std::fputs(text.c_str(), stream) >= 0 && std::fflush(stream) == 0;
    if (stream != nullptr && stream != stdout)
        written = std::fclose(stream) == 0 && written;
    if (!written)
        fmt::print(stderr, "kybridge-conform: {}: {}\n", file, std::strerror(errno)); // NOLINT(concurrency-mt-unsafe)
    return written;
}

const char *null_if_empty(const std::string &text)
{
    return text.empty() ? nullptr : text.c_str();
}

int run(const Options &options)
{
    std::vector<const char *> files;
    for (const std::string &file : options.sdk)
        files.push_back(file.c_str());
    ky_conform_options_t asked = {};
    asked.sdk = files.data();
    asked.sdk_count = files.size();
    asked.module = null_if_empty(options.module);
    asked.setup = null_if_empty(options.setup);
    asked.ports = options.ports.empty() ? nullptr : options.ports.data();
    asked.port_count = options.ports.size();
    asked.swid = static_cast<std::uint8_t>(options.swid);
    asked.seconds = options.seconds;
    asked.time_limit = options.time_limit;
    asked.seed = options.seed;
    asked.only = null_if_empty(options.only);

    struct Report {
        std::vector<conform::Result> results;
        bool on_standard_output;
    } report = {{}, options.tap != "-" && options.junit != "-"};
    char error[1000] = "";
    const int status = ky_conform_run(
        &asked,
        [](const ky_conform_result_t *result, void *context) {
            auto &to = *static_cast<Report *>(context);
            to.results.emplace_back(*result);
            if (to.on_standard_output)
                fmt::print("{}", conform::as_text(to.results.back()));
        },
        &report, error, sizeof error);
    if (status == cannot_run) {
        fmt::print(stderr, "kybridge-conform: {}\n", error);
        return status;
    }
    if (report.on_standard_output && !write_file("-", conform::summary(report.results)))
        return cannot_run;
    if (!options.tap.empty() && !write_file(options.tap, conform::as_tap(report.results)))
        return cannot_run;
    if (!options.junit.empty() && !write_file(options.junit, conform::as_junit(report.results)))
        return cannot_run;
    return status;
}

int run_command_line(int argc, char **argv)
{
    CLI::App app("Checks whether an SDK's services keep what the bridge module relies on.", "kybridge-conform");
    Options options;
    app.add_option("SDK", options.sdk, "Libraries that supply the services, opened in this order")
        ->check(CLI::ExistingFile);
    app.add_option("--module", options.module, "The module to load; by default the one that belongs to this program");
    app.add_option("--ports", options.ports,
                   "Logical ports that exist and may carry virtual ports, with commas between; by default 0x10001 to "
                   "0x10004")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("LIST");
    app.add_option("--swid", options.swid, "Switch partition that the ports are in; by default 0")
        ->check(CLI::Range(0, 255));
    app.add_option("--setup", options.setup, "A function int f(void) of the libraries, called first; it answers 0")
        ->type_name("SYMBOL");
    app.add_option("--seconds", options.seconds, "How long random operations go on; by default 10")
        ->check(CLI::Range(1, 86400));
    app.add_option("--time-limit", options.time_limit,
                   "Seconds after which a check that has not ended fails; by default 20, for random operations beside "
                   "their own")
        ->check(CLI::Range(1, 86400));
    app.add_option("--seed", options.seed, "Repeats the random operations of a run that told this number");
    app.add_option("--only", options.only, "Only this check, and those that it needs")->type_name("ID");
    app.add_flag("--list", options.list, "Only tell what is checked");
    app.add_option("--tap", options.tap, "Write the results to a file as TAP, - for standard output")
        ->type_name("FILE");
    app.add_option("--junit", options.junit, "Write the results to a file as JUnit's XML, - for standard output")
        ->type_name("FILE");
    app.set_version_flag("--version", "kybridge-conform " KYBRIDGE_VERSION);
    app.footer("EXIT STATUS\n"
               "  0  everything holds\n"
               "  1  something does not\n"
               "  2  nothing could be run: wrong arguments, no such file, or no library that can be opened\n");
    try {
        app.parse(argc, argv);
        if (options.list) {
            list_checks();
            return 0;
        }
        if (options.sdk.empty()) {
            fmt::print(stderr, "kybridge-conform: no SDK given, expected one or more libraries\n");
            return cannot_run;
        }
        return run(options);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : cannot_run;
    }
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run_command_line(argc, argv);
    } catch (const std::exception &error) { // memory that is not to be had, output that cannot be written
        static_cast<void>(std::fprintf(stderr, "kybridge-conform: %s\n", error.what()));
        return cannot_run;
    }
}
