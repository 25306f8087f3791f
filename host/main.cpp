// kybridge-host: a management process that loads the bridge module and drives it by scripts.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "host/module/doctor.h"
#include "host/output/outlet.h"
#include "host/output/output.h"
#include "host/output/terminal.h"
#include "host/run/interpreter.h"
#include "host/run/live.h"
#include "host/run/prompt.h"
#include "host/run/recorded.h"
#include "host/serve/serve.h"
#include "sim/descriptor.h"
#include "sim/live.h"

namespace {

using host::Interpreter;
using host::Verdict;

constexpr const char *module_soname = "libkybridge.so.1";
constexpr const char *standard_stream = "-";

struct Options {
    std::vector<std::string> files;
    std::string module = module_soname;
    std::string log;
    std::string doctor;
    std::string sdk;
    host::LiveOptions live;
    std::string recording;
    std::uint64_t until = UINT64_MAX;
    std::uint32_t verbosity = 3;
    bool serve = false;
    bool keep_going = false;
    bool check_only = false;
    bool json = false;
    bool trace = false;
    bool no_colour = false;
};

/// Runs commands as they arrive on standard input. A person at a terminal is prompted, and may mistype.
Verdict run_standard_input(host::Host &host, Interpreter &interpreter)
{
    if (isatty(STDIN_FILENO) == 0)
        return interpreter.run(std::cin, "standard input");
    host::run_prompt(host, interpreter);
    return host::as_expected;
}

/// Checks all files before it runs the first, so that a wrong line is found before anything is done.
Verdict check_files(const std::vector<std::string> &files, bool standard_input_too)
{
    auto verdict = host::as_expected;
    for (const std::string &file : files) {
        if (file == standard_stream) {
            if (standard_input_too)
                verdict = std::max(verdict, host::check_script(std::cin, "standard input"));
            continue;
        }
        std::ifstream script(file);
        if (std::filesystem::is_directory(file)) {
            fmt::print(stderr, "{}: is a directory; expected a script\n", file);
            verdict = host::wrong_script;
        } else if (!script) {
            fmt::print(stderr, "{}: {}\n", file, std::strerror(errno)); // NOLINT(concurrency-mt-unsafe)
            verdict = host::wrong_script;
        } else {
            verdict = std::max(verdict, host::check_script(script, file));
        }
    }
    return verdict;
}

Verdict run_files(host::Host &host, Interpreter &interpreter, const host::Files &files, const Options &options)
{
    auto verdict = host::as_expected;
    for (const std::string &file : options.files) {
        if (file == standard_stream) {
            verdict = std::max(verdict, run_standard_input(host, interpreter));
        } else {
            std::ifstream script(file);
            verdict = std::max(verdict, interpreter.run(script, file));
        }
        if (host.quitting || verdict == host::wrong_script || (verdict == host::unexpected && !options.keep_going))
            break;
    }
    const bool goes_on = verdict == host::as_expected || (verdict == host::unexpected && options.keep_going);
    if (goes_on && !host.quitting && options.serve)
        host::serve(host, files);
    else if (goes_on && !host.quitting && options.live.are_given())
        verdict = std::max(verdict, host::forward(host, options.live));
    return std::max(verdict, interpreter.finish());
}

/// @return -1: the log has no file of its own
/// @throws std::system_error when the file cannot be had
int open_log(const std::string &path)
{
    if (path.empty() || path == standard_stream)
        return -1;
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666); // NOLINT(*-vararg)
    if (file < 0)
        throw std::system_error(errno, std::generic_category(), path);
    return file;
}

int run(const Options &options)
{
    if (options.serve && (options.log == standard_stream || std::ranges::count(options.files, standard_stream) != 0)) {
        fmt::print(stderr, "kybridge-host: with --serve, standard input and output are for requests and answers alone; "
                           "expected files for scripts and log\n");
        return host::wrong_script;
    }
    const Verdict wrong = check_files(options.files, options.check_only);
    if (wrong != host::as_expected || options.check_only)
        return wrong;

    const sim::Descriptor log_file(open_log(options.log));
    host::Host host{host::load_module(options.module)};
    // Programs that are served get answers alone, which bring the log.
    const sim::Descriptor nowhere_file(open_log("/dev/null"));
    host::Outlet nowhere(nowhere_file.get());
    std::optional<host::Outlet> log;
    if (options.serve && options.log.empty()) {
        host.log.outlet = &nowhere;
    } else if (options.log == standard_stream) {
        host.log.outlet = &host.out;
    } else if (!options.log.empty()) {
        log.emplace(log_file.get(), options.log, &host.err);
        host.log.outlet = &*log;
    }
    host.module.ky_bridge_log_verbosity_level_set(options.verbosity);
    const Verdict followed =
        options.recording.empty() ? host::as_expected : host::follow_recording(host, options.recording, options.until);
    if (followed == host::wrong_script)
        return followed;
    host.json = options.json;
    host.trace(options.trace ? host::Tracing::on : host::Tracing::off);
    host.device.log = [&host](const sdk::LogLine &line) { host.write_log(line); };

    host::TextOutput output(options.serve ? nowhere : host.out, host.err, options.json);
    const host::Files files;
    Interpreter interpreter(host, output, files, options.keep_going);
    const Verdict verdict = std::max(followed, run_files(host, interpreter, files, options));
    host.device.log = nullptr;
    host.trace(host::Tracing::off);
    bool lost = false;
    for (host::Outlet *outlet : {host.log.outlet, &host.out, &host.err}) {
        outlet->finish();
        lost = lost || outlet->has_lost();
    }
    return lost ? host::wrong_script : verdict;
}

/// What is wrong with "PORT=INTERFACE", or nothing. Whether there is such a port is known after the scripts.
std::string check_attachment(const std::string &text)
{
    const std::size_t sign = text.find('=');
    const bool is_whole = sign != std::string::npos && sign != 0 && sign + 1 != text.size();
    return is_whole ? "" : fmt::format("'{}': expected PORT=INTERFACE, for example north=eth1", text);
}

std::string check_ptf_address(const std::string &text)
{
    return text.starts_with("tcp://") || text.starts_with("ipc://")
               ? ""
               : fmt::format("'{}': expected tcp://ADDRESS:PORT or ipc://PATH", text);
}

/// Both files when both are given, the SDK's first.
int examine(const Options &options)
{
    const bool sdk_is_well = options.sdk.empty() || host::examine_sdk(options.sdk);
    const bool module_is_well = options.doctor.empty() || host::examine_module(options.doctor);
    return sdk_is_well && module_is_well ? host::as_expected : host::unexpected;
}

int run_command_line(int argc, char **argv)
{
    CLI::App app("Loads the bridge module into a process with a stand-in SDK and drives it by scripts.",
                 "kybridge-host");
    Options options;
    app.add_option("FILE", options.files, "Scripts, run one after the other; - or none: standard input");
    app.add_option("--module", options.module, "The module to load; by default the one that belongs to this program");
    app.add_option("--doctor", options.doctor,
                   "Only examine a library file: whether it is the module, what it needs of a process, and whether it "
                   "loads into this one");
    app.add_option("--sdk", options.sdk,
                   "Only examine a library file: whether it is an SDK's, with every service that the module calls");
    app.add_option("--log", options.log, "File for the module's log, - for standard output; by default standard error");
    app.add_option("--verbosity", options.verbosity,
                   "What the module logs: 0 nothing, 1 errors, 3 notices (the default), 5 debug, 6 function traces")
        ->check(CLI::Range(0, 6));
    app.add_option("--recording", options.recording,
                   "Begin where a process was that kybridge-record recorded in this file; scripts and commands go on "
                   "from there");
    app.add_option("--until", options.until,
                   "With --recording: be where the process was after this call, by its number")
        ->needs("--recording");
    app.add_option("--attach", options.live.attachments,
                   "PORT=INTERFACE: after the scripts, forward real frames between the attached interfaces until "
                   "SIGINT or SIGTERM; commands are taken from standard input meanwhile")
        ->check(check_attachment)
        ->type_name("PORT=INTERFACE")
        ->allow_extra_args(false); // what stands behind it is a FILE
    app.add_option("--ptf", options.live.ptf,
                   "After the scripts, be the device of a packet test framework (PTF) that connects to this address, "
                   "without interfaces and without root: its port n is the n-th that was announced, from 0")
        ->check(check_ptf_address)
        ->type_name("ADDRESS")
        ->excludes("--attach");
    app.add_option("--control", options.live.control,
                   "With --attach or --ptf: take commands from clients of this Unix socket instead");
    app.add_option("--buffer", options.live.buffer_megabytes,
                   "With --attach: memory in megabytes for the frames of each interface that come faster than they are "
                   "forwarded, 1 to 1024, by default 64")
        ->check(CLI::Range(1, 1024))
        ->needs("--attach");
    app.add_option("--control-files", options.live.control_files,
                   "With --control: the folder whose files clients may read and make; by default none")
        ->type_name("FOLDER")
        ->needs("--control");
    app.add_option("--user", options.live.user,
                   "With --attach or --ptf: the user who the process becomes before it forwards; CAP_NET_RAW is all "
                   "that it keeps");
    app.add_flag("--serve", options.serve,
                 "After the scripts, take requests of programs from standard input, one JSON object a line, and answer "
                 "each in a line of standard output")
        ->excludes("--attach")
        ->excludes("--ptf");
    app.add_flag("--keep-going", options.keep_going, "Go on after a command that did not do what was expected");
    app.add_flag("--check", options.check_only, "Only look for wrong lines in the files; carry nothing out");
    app.add_flag("--json", options.json, "Show each screen as a JSON object in a line of its own");
    app.add_flag("--trace", options.trace,
                 "Show, with the log, each command and the calls into the SDK that it comes to, as 'trace on' does");
    app.add_flag("--no-color", options.no_colour,
                 "No colours on a terminal; NO_COLOR in the environment says the same");
    app.set_version_flag("--version", "kybridge-host " KYBRIDGE_VERSION);
    app.footer([] {
        return host::help_on_all_commands() +
               "\nEXIT STATUS\n  0  every command did what the script expected\n"
               "  1  a command did not, or memory was left over at the end; or the "
               "examined file is not what it should be\n"
               "  2  a wrong line in a script, wrong arguments, no module to load, or output that "
               "could not be written\n";
    });

    try {
        app.parse(argc, argv);
        for (const char *option : {"--control", "--user"})
            if (app.count(option) != 0 && !options.live.are_given())
                throw CLI::RequiresError(option, "--attach or --ptf");
        if (options.no_colour)
            terminal::forbid_colours();
        if (!options.doctor.empty() || !options.sdk.empty())
            return examine(options);
        if (options.live.are_given())
            host::hold_signals();
        else if (options.files.empty() && !options.serve)
            options.files.emplace_back(standard_stream);
        return run(options);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? host::as_expected : host::wrong_script;
    } catch (const host::ModuleError &error) {
        fmt::print(stderr, "kybridge-host: {}\n", error.what());
        return host::wrong_script;
    }
}

} // namespace

int main(int argc, char **argv)
{
    try {
        const int exit_status = run_command_line(argc, argv);
        const bool failed = std::fflush(stdout) != 0;
        if (failed || std::ferror(stdout) != 0) // an earlier write failed, for a reason that is forgotten
            throw std::system_error(failed ? errno : EIO, std::generic_category(), "standard output");
        return exit_status;
    } catch (const std::exception &error) { // memory that is not to be had, output that cannot be written
        static_cast<void>(std::fprintf(stderr, "kybridge-host: %s\n", error.what()));
        return host::wrong_script;
    }
}
