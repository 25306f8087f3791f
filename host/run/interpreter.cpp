#include "host/run/interpreter.h"

#include <algorithm>

#include <unistd.h>

#include <fmt/format.h>

#include "host/output/terminal.h"

namespace host {

namespace {

/// After everything that was printed before it.
void complain(const std::string &text, std::FILE *out = stdout, std::FILE *err = stderr)
{
    (void)std::fflush(out);
    terminal::clear_progress();
    fmt::print(err, "{}\n", terminal::has_colours(err) ? terminal::red(text) : text);
}

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
            complain(fmt::format("{}: {}", place_of(file, number), error.what()));
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
    try {
        const Words words = parse_line(line);
        if (words.empty())
            return as_expected;
        if (host_.tracing)
            host_.log.write("> " + line);
        return carry_out(words, place);
    } catch (const ScriptError &error) {
        complain(fmt::format("{}: {}", place, error.what()), host_.out, host_.err);
        return wrong_script;
    }
}

Verdict Interpreter::carry_out(std::span<const std::string> words, const std::string &place)
{
    const Call call = read_call(words, &host_.names);
    host_.log.errors.clear();
    const Result result = call.command->run(host_, call.arguments);
    Verdict verdict = judge(result, call.expected, words, place);
    for (; violations_seen_ < host_.device.violations.size(); ++violations_seen_) {
        complain(fmt::format("{}: the SDK was misused: {}", place, host_.device.violations[violations_seen_]),
                 host_.out, host_.err);
        verdict = unexpected;
    }
    return verdict;
}

Verdict Interpreter::judge(const Result &result, ky_status_t expected, std::span<const std::string> words,
                           const std::string &place)
{
    if (result.status == expected && !result.failed) {
        const std::string text =
            expected == KY_STATUS_SUCCESS ? result.text : "refused as expected: " + status_text(expected);
        if (!text.empty() || !result.outputs.empty())
            host_.print(text + result.outputs + "\n");
        return as_expected;
    }

    std::string complaint = fmt::format("{}: {}", place, join(words));
    if (result.failed)
        complaint += "\n  " + result.text;
    else
        complaint += fmt::format("\n  answered {}, expected {}{}", status_text(result.status), status_text(expected),
                                 result.outputs);
    for (const std::string &error : host_.log.errors)
        complaint += "\n  " + error;
    complain(complaint, host_.out, host_.err);
    return unexpected;
}

Verdict Interpreter::finish()
{
    // Faults that a script planned and did not meet are not meant for this stop.
    if (host_.device.faults.pending()) {
        complain("at the end: a planned fault has not happened ('show faults' tells which)", host_.out, host_.err);
        host_.device.faults.clear();
    }
    Verdict verdict = as_expected;
    if (host_.module.is_started())
        verdict = run_line("stop", "at the end");
    if (!host_.device.memory.outstanding.empty() || !host_.device.memory.raw_outstanding.empty()) {
        complain(fmt::format("at the end: {} bytes of memory are still outstanding", host_.device.memory.bytes()),
                 host_.out, host_.err);
        verdict = unexpected;
    }
    return verdict;
}

} // namespace host
