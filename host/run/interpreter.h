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

class Interpreter {
public:
    /// @param output where answers and complaints go
    /// @param files that commands may read and make
    /// @param keep_going goes on after a command that did not do what was expected
    Interpreter(Host &host, Output &output, const Files &files, bool keep_going = false)
        : host_(host), output_(output), files_(files), keep_going_(keep_going)
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
    bool is_busy() const { return current_.rest != nullptr; }

    /// Stops the module if it is started, and reports memory that is still outstanding.
    Verdict finish();

private:
    /// The command that is being carried out.
    struct Current {
        Words words;
        std::string place;
        ky_status_t expected = KY_STATUS_SUCCESS;
        std::function<Result()> rest; ///< empty: none is
    };

    std::optional<Verdict> advance(const std::function<Result()> &part);
    Verdict judge(const Result &result);

    Host &host_;
    Output &output_;
    const Files &files_;
    bool keep_going_;
    Current current_;
};

} // namespace host

#endif
