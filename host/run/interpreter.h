/// Runs scripts line by line and keeps account of what did not go as the script said.
#ifndef KYBRIDGE_HOST_INTERPRETER_H
#define KYBRIDGE_HOST_INTERPRETER_H

#include <cstdint>
#include <istream>
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

class Interpreter {
public:
    /// @param keep_going goes on after a command that did not do what was expected
    Interpreter(Host &host, bool keep_going) : host_(host), keep_going_(keep_going) {}

    /// Carries out a script up to its end, to a wrong line, or to a command that did not do what was expected.
    Verdict run(std::istream &script, const std::string &file);

    /// Carries out one line. A wrong one has done nothing.
    /// @param place that messages begin with: "FILE:LINE"
    Verdict run_line(const std::string &line, const std::string &place);

    /// Stops the module if it is started, and reports memory that is still outstanding.
    Verdict finish();

private:
    Verdict carry_out(std::span<const std::string> words, const std::string &place);
    Verdict judge(const Result &result, ky_status_t expected, std::span<const std::string> words,
                  const std::string &place);

    Host &host_;
    bool keep_going_;
    std::size_t violations_seen_ = 0;
};

} // namespace host

#endif
