#include "host/run/interpreter.h"

#include <algorithm>
#include <iterator>
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
            if (command.check)
                command.check(call.arguments, names);
        } catch (const ScriptError &error) {
            throw ScriptError(fmt::format("{}: {}", command.name, error.what()), usage(command));
        }
        if (command.run)
            return call;

        expected = call.arguments.number("STATUS");
        words = words.last(call.arguments.rest().size());
        if (words.empty())
            throw ScriptError(fmt::format("{}: the command is missing", command.name), usage(command));
    }
}

/// While it lives, commands are those of one giver.
class Turn {
public:
    Turn(Host &host, Giver &giver) : host_(host), before_(std::exchange(host.giver, &giver)) {}
    ~Turn() { host_.giver = before_; }
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

private:
    Host &host_;
    Giver *before_;
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

std::string Answer::text() const
{
    return (expected == KY_STATUS_SUCCESS ? result.text : "refused as expected: " + numbered_status(expected)) +
           result.outputs;
}

std::string Answer::complaint() const
{
    if (result.failed)
        return result.text;
    return fmt::format("answered {}, expected {}{}", numbered_status(result.status), numbered_status(expected),
                       result.outputs);
}

std::optional<Verdict> Interpreter::begin(const std::string &line, const std::string &place)
{
    place_ = place;
    words_.clear();
    try {
        words_ = parse_line(line);
        if (words_.empty())
            return as_expected;
        if (host_.tracing != Tracing::off)
            host_.write_log("> " + line);
        return report(begin_command(words_));
    } catch (const ScriptError &error) {
        return refuse(error);
    }
}

std::optional<Verdict> Interpreter::go_on()
{
    try {
        return report(continue_command());
    } catch (const ScriptError &error) {
        return refuse(error);
    }
}

Verdict Interpreter::refuse(const ScriptError &error)
{
    giver_.output->complain(fmt::format("{}: {}", place_, error.what()));
    return wrong_script;
}

std::optional<Answer> Interpreter::begin_command(std::span<const std::string> words)
{
    const Call call = read_call(words, &host_.names);
    current_ = {};
    current_.expected = call.expected;
    return advance([this, &call] { return call.command->run(host_, call.arguments); });
}

std::optional<Answer> Interpreter::continue_command()
{
    return advance(std::exchange(current_.result.rest, nullptr));
}

const sim::Outcome &Interpreter::send(std::uint32_t log_port, sim::BytesView frame)
{
    const Turn turn(host_, giver_);
    return host_.send(log_port, frame);
}

/// Carries out a part of the current command. @return the answer when it was the last
std::optional<Answer> Interpreter::advance(const std::function<Result()> &part)
{
    const Turn turn(host_, giver_);
    host_.log.lines.clear();
    const auto &violations = host_.device.violations;
    const auto before = static_cast<std::ptrdiff_t>(violations.size());
    try {
        current_.result = part();
    } catch (const ScriptError &) {
        throw;
    } catch (const std::exception &error) { // what the machine refused
        current_.result = {KY_STATUS_SUCCESS, error.what(), true};
    }
    std::ranges::move(host_.log.lines, std::back_inserter(current_.log));
    current_.misuses.insert(current_.misuses.end(), violations.begin() + before, violations.end());
    return is_busy() ? std::nullopt : std::optional(std::exchange(current_, {}));
}

/// Prints the answer to a line, unless its command goes on.
std::optional<Verdict> Interpreter::report(const std::optional<Answer> &answer)
{
    if (!answer)
        return std::nullopt;
    Verdict verdict = as_expected;
    if (answer->as_expected()) {
        if (const std::string text = answer->text(); !text.empty())
            giver_.output->print(text + "\n");
    } else {
        std::string complaint = fmt::format("{}: {}\n  {}", place_, join(words_), answer->complaint());
        for (const Log::Line &line : answer->log)
            if (line.severity == KY_LOG_ERROR)
                complaint += "\n  " + line.text();
        giver_.output->complain(complaint);
        verdict = unexpected;
    }
    for (const std::string &misuse : answer->misuses) {
        giver_.output->complain(fmt::format("{}: the SDK was misused: {}", place_, misuse));
        verdict = unexpected;
    }
    return verdict;
}

Verdict Interpreter::finish()
{
    // Faults that a script planned and did not meet are not meant for this stop.
    if (host_.device.faults.pending()) {
        giver_.output->complain("at the end: a planned fault has not happened ('show faults' tells which)");
        host_.device.faults.clear();
    }
    Verdict verdict = as_expected;
    if (host_.module.is_started())
        verdict = run_line("stop", "at the end");
    if (!host_.device.memory.outstanding.empty() || !host_.device.memory.raw_outstanding.empty()) {
        giver_.output->complain(
            fmt::format("at the end: {} bytes of memory are still outstanding", host_.device.memory.bytes()));
        verdict = unexpected;
    }
    return verdict;
}

} // namespace host
