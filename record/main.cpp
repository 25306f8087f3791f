// kybridge-record: makes recordings, and shows, counts, plays back and translates them.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "record/player.h"
#include "record/reader.h"
#include "record/script.h"
#include "record/show.h"

namespace {

enum Verdict : int { all_well = 0, something_wrong = 1, wrong_usage = 2 };

constexpr const char *recorder_soname = "libkyrecord.so.1";
constexpr const char *module_soname = "libkybridge.so.1";

struct Options {
    std::string file;
    unsigned limit = 64;
    std::vector<std::string> command;
    std::string calls;
    std::string module;
    std::uint64_t until = UINT64_MAX;
    record::Selection selection;
    bool as_json = false;
};

/// A library that belongs to this program: beside it where both were built or installed, or as the system finds it.
std::string own_library(const char *built_in, const char *soname)
{
    const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    for (const char *directory : {built_in, "../" KYRECORD_INSTALLED})
        if (const auto path = here / directory / soname; std::filesystem::exists(path))
            return std::filesystem::canonical(path);
    return soname;
}

/// Runs the command with the recorder in front, and takes its exit status over.
int run(const Options &options)
{
    std::filesystem::remove(options.file);             // the recorder itself overwrites nothing
    const char *preloaded = std::getenv("LD_PRELOAD"); // NOLINT(concurrency-mt-unsafe): one thread
    const std::string preload =
        own_library(".", recorder_soname) + (preloaded != nullptr ? std::string(":") + preloaded : "");
    const std::string file = std::filesystem::absolute(options.file);
    std::vector<char *> arguments;
    for (const std::string &word : options.command)
        arguments.push_back(const_cast<char *>(word.c_str())); // execvp's form
    arguments.push_back(nullptr);

    const pid_t child = fork();
    if (child < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        setenv("LD_PRELOAD", preload.c_str(), 1);
        setenv("KYBRIDGE_RECORD", file.c_str(), 1);
        setenv("KYBRIDGE_RECORD_LIMIT", fmt::to_string(options.limit).c_str(), 1);
        execvp(arguments.front(), arguments.data());
        const int reason = errno;
        fmt::print(stderr, "kybridge-record: {}: {}\n", options.command.front(), std::strerror(reason));
        _exit(reason == ENOENT ? 127 : 126); // as a shell has it
    }
    static_cast<void>(signal(SIGINT, SIG_IGN)); // for the command to deal with
    static_cast<void>(signal(SIGQUIT, SIG_IGN));
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!std::filesystem::exists(options.file))
        fmt::print(stderr, "kybridge-record: nothing was recorded: no process called the module\n");
    else {
        const auto header = record::read_header(options.file);
        const bool is_running = kill(static_cast<pid_t>(header.process), 0) == 0 || errno != ESRCH;
        if (!is_running && std::filesystem::file_size(options.file) > header.used)
            std::filesystem::resize_file(options.file, header.used);
        if (header.is_full != 0)
            fmt::print(stderr, "kybridge-record: the recording stopped at its limit of {} MB\n", options.limit);
    }
    if (WIFSIGNALED(status)) { // end as the command did
        static_cast<void>(signal(WTERMSIG(status), SIG_DFL));
        static_cast<void>(raise(WTERMSIG(status)));
        return 128 + WTERMSIG(status);
    }
    return WEXITSTATUS(status);
}

/// "A-B", "A-", "-B" or "A".
record::Selection selection_of(const std::string &calls, bool failed)
{
    record::Selection selection;
    selection.failed = failed;
    if (calls.empty())
        return selection;
    const std::size_t dash = calls.find('-');
    const auto number = [&](const std::string &text, std::uint64_t otherwise) {
        return text.empty() ? otherwise : std::stoull(text);
    };
    selection.first = number(calls.substr(0, dash), 1);
    selection.last = dash == std::string::npos ? selection.first : number(calls.substr(dash + 1), UINT64_MAX);
    return selection;
}

int run_command_line(int argc, char **argv)
{
    CLI::App app("Makes recordings of the bridge module in a process, and shows, counts and plays them back.",
                 "kybridge-record");
    app.require_subcommand(1);
    app.set_version_flag("--version", "kybridge-record " KYBRIDGE_VERSION);
    Options options;

    CLI::App *const run_command = app.add_subcommand("run", "Runs a command, and records its calls of the module");
    run_command->add_option("-o,--output", options.file, "The recording")->required();
    run_command->add_option("--limit", options.limit, "Megabytes that the recording may have")
        ->capture_default_str()
        ->check(CLI::Range(1, 1024 * 1024));
    run_command->add_option("COMMAND", options.command, "The command with its arguments, after --")->required();

    CLI::App *const show_command = app.add_subcommand("show", "Shows each call, with everything inside it");
    show_command->add_option("--calls", options.calls, "Only the calls A-B, A or A- to the end")
        ->type_name("A-B")
        ->check([](const std::string &text) {
            const bool right = text.find_first_not_of("0123456789-") == std::string::npos && text != "-" &&
                               std::ranges::count(text, '-') <= 1 && text.size() <= 19;
            return right ? std::string() : fmt::format("'{}' is no range of calls: expected A-B, A-, -B or A", text);
        });
    show_command->add_flag("--failed", options.selection.failed, "Only calls that were refused or have no answer");
    show_command->add_flag("--json", options.as_json, "A JSON object for each call, in a line of its own");
    CLI::App *const stats_command = app.add_subcommand("stats", "Counts calls, refusals and time by function");
    CLI::App *const check_command = app.add_subcommand(
        "check", "Plays it back against the module, and shows the first difference in what the module does");
    check_command->add_option("--module", options.module,
                              "The module to play against; by default the one that belongs to this program");
    CLI::App *const script_command =
        app.add_subcommand("script", "Prints the script for kybridge-host that does the same");
    script_command->add_option("--until", options.until, "The last call that is taken");
    for (CLI::App *command : {show_command, stats_command, check_command, script_command})
        command->add_option("FILE", options.file, "The recording")->required();

    try {
        app.parse(argc, argv);
        if (run_command->parsed())
            return run(options);
        const auto contents = record::read_file(options.file);
        record::Reader reader(contents);
        bool is_well = false;
        if (show_command->parsed())
            is_well = show(reader, selection_of(options.calls, options.selection.failed), options.as_json);
        else if (stats_command->parsed())
            is_well = show_stats(reader);
        else if (script_command->parsed()) {
            fmt::print("{}", script_of(reader, options.until));
            is_well = tell_damages(reader);
        } else
            is_well = check(reader, options.module.empty() ? own_library("../bridge", module_soname) : options.module);
        return is_well ? all_well : something_wrong;
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? all_well : wrong_usage;
    } catch (const record::RecordingError &error) {
        fmt::print(stderr, "kybridge-record: {}: {}\n", options.file, error.what());
        return wrong_usage;
    }
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run_command_line(argc, argv);
    } catch (const std::exception &error) { // memory that is not to be had, output that cannot be written
        static_cast<void>(std::fprintf(stderr, "kybridge-record: %s\n", error.what()));
        return wrong_usage;
    }
}
