#include "host/run/interpreter.h"

#include <algorithm>
#include <utility>

#include <unistd.h>

#include <fmt/format.h>

#include "host/output/terminal.h"

namespace host {

namespace {

std::string place_of(const std::string &file, std::size_t line)
{
    return fmt::format("{}:{}", file, line);
}

/// The command of a line with its arguments, and the status that it must be answered with.
struct Call {
    const Command *command;
    Arguments arguments;
    ky_status_t expected;
};

/// @param names as for Grammar::read
Call read_call(std::span<const std::string> words, const Names *names)
{
    ky_status_t expected = KY_STATUS_SUCCESS;
    while (true) {
        const Command &command = find_command(words);
        Call call{&command, {}, expected};
        try {
            call.arguments = command.grammar.read(arguments_of(command, words), names);
        } catch (const ScriptError &error) {
            throw ScriptError(fmt::format("{}: {}\n  usage: {}", command.name, error.what(), usage(command)));
        }
        if (command.run)
            return call;

        expected = call.arguments.number("STATUS");
        words = words.last(call.arguments.rest().size());
        if (words.empty())
            throw ScriptError(fmt::format("{}: the command is missing\n  usage: {}", command.name, usage(command)));
    }
}

/// While it lives, what commands say goes to whoever gave them, and they open the files that those may.
class Redirection {
public:
    Redirection(Host &host, Output &output, const Files &files)
        : host_(host), output_(std::exchange(host.output, &output)), files_(std::exchange(host.files, &files))
    {
    }
    ~Redirection()
    {
        host_.output = output_;
        host_.files = files_;
    }
    Redirection(const Redirection &) = delete;
    Redirection &operator=(const Redirection &) = delete;

private:
    Host &host_;
    Output *output_;
    const Files *files_;
};

} // namespace

Verdict check_script(std::istream &script, const std::string &file)
{
    Verdict verdict = as_expected;
    std::size_t number = 0;
    for (std::string line; std::getline(script, line);) {
        ++number;
        try {
            if (const Words words = parse_line(line); !words.empty())
                read_call(words, nullptr);
        } catch (const ScriptError &error) {
            const std::string text = fmt::format("{}: {}\n", place_of(file, number), error.what());
            fmt::print(stderr, "{}", terminal::has_colours(STDERR_FILENO) ? terminal::red(text) : text);
            verdict = wrong_script;
        }
    }
    return verdict;
}

Verdict Interpreter::run(std::istream &script, const std::string &file)
{
    Verdict verdict = as_expected;
    std::size_t number = 0;
    terminal::Progress progress(file, "lines", isatty(STDOUT_FILENO) == 0);
    for (std::string line; std::getline(script, line); progress.step()) {
        verdict = std::max(verdict, run_line(line, place_of(file, ++number)));
        if (host_.quitting || verdict == wrong_script || (verdict == unexpected && !keep_going_))
            break;
    }
    return verdict;
}

Verdict Interpreter::run_line(const std::string &line, const std::string &place)
{
    auto verdict = begin(line, place);
    while (!verdict)
        verdict = go_on();
    return *verdict;
}

std::optional<Verdict> Interpreter::begin(const std::string &line, const std::string &place)
{
    current_ = {{}, place, KY_STATUS_SUCCESS, nullptr};
    return advance([this, &line]() -> Result {
        current_.words = parse_line(line);
        if (current_.words.empty())
            return {};
        if (host_.tracing)
            host_.write_log("> " + line);
        const Call call = read_call(current_.words, &host_.names);
        current_.expected = call.expected;
        return call.command->run(host_, call.arguments);
    });
}

std::optional<Verdict> Interpreter::go_on()
{
    return advance(std::exchange(current_.rest, nullptr));
}

/// Carries out a part of the current command, and judges the command when it was the last.
std::optional<Verdict> Interpreter::advance(const std::function<Result()> &part)
{
    const Redirection to_giver(host_, output_, files_);
    host_.log.errors.clear();
    const std::size_t misuses = host_.device.violations.size();
    Result result;
    try {
        result = part();
    } catch (const ScriptError &error) {
        output_.complain(fmt::format("{}: {}", current_.place, error.what()));
        return wrong_script;
    } catch (const std::exception &error) { // what the machine refused
        result = {KY_STATUS_SUCCESS, error.what(), true};
    }
    std::optional<Verdict> verdict;
    if (result.rest)
        current_.rest = std::move(result.rest);
    else
        verdict = judge(result);
    for (std::size_t i = misuses; i < host_.device.violations.size(); ++i) {
        output_.complain(fmt::format("{}: the SDK was misused: {}", current_.place, host_.device.violations[i]));
        verdict = unexpected;
    }
    return verdict;
}

Verdict Interpreter::judge(const Result &result)
{
    const ky_status_t expected = current_.expected;
    if (result.status == expected && !result.failed) {
        const std::string text =
            expected == KY_STATUS_SUCCESS ? result.text : "refused as expected: " + status_text(expected);
        if (!text.empty() || !result.outputs.empty())
            output_.print(text + result.outputs + "\n");
        return as_expected;
    }

    std::string complaint = fmt::format("{}: {}", current_.place, join(current_.words));
    if (result.failed)
        complaint += "\n  " + result.text;
    else
        complaint += fmt::format("\n  answered {}, expected {}{}", status_text(result.status), status_text(expected),
                                 result.outputs);
    for (const std::string &error : host_.log.errors)
        complaint += "\n  " + error;
    output_.complain(complaint);
    return unexpected;
}

Verdict Interpreter::finish()
{
    // Faults that a script planned and did not meet are not meant for this stop.
    if (host_.device.faults.pending()) {
        output_.complain("at the end: a planned fault has not happened ('show faults' tells which)");
        host_.device.faults.clear();
    }
    Verdict verdict = as_expected;
    if (host_.module.is_started())
        verdict = run_line("stop", "at the end");
    if (!host_.device.memory.outstanding.empty() || !host_.device.memory.raw_outstanding.empty()) {
        output_.complain(
            fmt::format("at the end: {} bytes of memory are still outstanding", host_.device.memory.bytes()));
        verdict = unexpected;
    }
    return verdict;
}

} // namespace host
