/// Runs scripts line by line and keeps account of what did not go as the script said.
#ifndef KYBRIDGE_HOST_INTERPRETER_H
#define KYBRIDGE_HOST_INTERPRETER_H

#include <cstdint>
#include <functional>
#include <istream>
#include <optional>
#include <span>
#include <string>

#include "host/commands/commands.h"
#include "host/host.h"

namespace host {

/// What became of a script.
enum Verdict {
    as_expected = 0, ///< every command did what the script expected
    unexpected = 1,  ///< a command did not, or something was left over at the end
    wrong_script = 2 ///< a line that cannot be carried out
};

/// Reads every line without carrying anything out, and reports each wrong one. Names of ports and bridges
/// are taken on trust.
Verdict check_script(std::istream &script, const std::string &file);

/// What became of one command.
struct Answer {
    Result result = {};
    ky_status_t expected = KY_STATUS_SUCCESS;
    std::vector<Log::Line> log = {};       ///< what the module logged
    std::vector<std::string> misuses = {}; ///< of the SDK by the module, in words

    /// Whether the command itself did what was expected, misuses aside.
    bool as_expected() const { return result.status == expected && !result.failed; }
    /// What was done, in words without a line end; empty: nothing to say. Only when it is as expected.
    std::string text() const;
    /// "answered 22 ENTRY_ALREADY_EXISTS, expected 0 SUCCESS", or why it failed. Only when it is not.
    std::string complaint() const;
};

class Interpreter {
public:
    /// @param output where answers and complaints go
    /// @param files that commands may read and make
    /// @param keep_going goes on after a command that did not do what was expected
    Interpreter(Host &host, Output &output, const Files &files, bool keep_going = false)
        : host_(host), giver_{&output, &files}, keep_going_(keep_going)
    {
    }

    /// Carries out a script up to its end, to a wrong line, or to a command that did not do what was expected.
    Verdict run(std::istream &script, const std::string &file);

    /// Carries out one line. A wrong one has done nothing.
    /// @param place that messages begin with: "FILE:LINE"
    Verdict run_line(const std::string &line, const std::string &place);

    /// The same in parts of a few milliseconds at most, for those who have other things to do meanwhile: begin, then
    /// go_on as long as there is no verdict.
    std::optional<Verdict> begin(const std::string &line, const std::string &place);
    std::optional<Verdict> go_on();
    bool is_busy() const { return current_.result.rest != nullptr; }

    /// The same for one command that is given in words, without printing its result.
    /// @param words at least one @throws ScriptError when the command is a wrong one, which has done nothing
    /// @return nothing as long as the command is not carried out; then continue_command goes on
    std::optional<Answer> begin_command(std::span<const std::string> words);
    std::optional<Answer> continue_command();

    /// Sends a frame into a port for the giver of the commands.
    const sim::Outcome &send(std::uint32_t log_port, sim::BytesView frame);
    const Giver &giver() const { return giver_; }

    /// Stops the module if it is started, and reports memory that is still outstanding.
    Verdict finish();

private:
    std::optional<Answer> advance(const std::function<Result()> &part);
    std::optional<Verdict> report(const std::optional<Answer> &answer);
    Verdict refuse(const ScriptError &error);

    Host &host_;
    Giver giver_;
    bool keep_going_;
    Answer current_; ///< so far; its result has a rest while a command is being carried out
    Words words_;    ///< of the line that is being carried out
    std::string place_;
};

} // namespace host

#endif
