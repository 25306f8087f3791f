/// What the commands of a script work on.
#ifndef KYBRIDGE_HOST_HOST_H
#define KYBRIDGE_HOST_HOST_H

#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/language/names.h"
#include "host/module/module.h"
#include "host/output/tables.h"
#include "sdk/sdk.h"
#include "sim/switch.h"

namespace host {

/// Where the module's log goes.
struct Log {
    std::FILE *file = stderr;
    std::vector<std::string> errors; ///< error lines of the current command
    bool places = true;              ///< whether debug and trace lines tell file and line of the module's source

    void write(const sdk::LogLine &line);
    void write(const std::string &text) const; ///< a line of the host's own, after everything that was printed
};

/// The loaded module, the device under it, and what scripts have named and remembered.
struct Host {
    Module module;
    sdk::Device &device = sdk::device();
    Names names = {};
    Log log = {};
    std::map<std::string, std::vector<std::string>> remembered = {}; ///< facts by the name they were remembered under

    std::FILE *out = stdout; ///< where answers go
    std::FILE *err = stderr; ///< where complaints go
    bool json = false;       ///< screens come out as JSON
    bool tracing = false;    ///< the log shows each command and the calls that it comes to
    bool quitting = false;   ///< no further command is wanted

    sim::Switch software_switch = sim::Switch();
    std::optional<sim::Outcome> last_frame = {}; ///< what became of the last frame that a script sent

    void print(std::string_view text) const { static_cast<void>(std::fwrite(text.data(), 1, text.size(), out)); }
    void show(const Table &screen) const;

    /// Turns a transcript on or off: each command as it was written, then the module's log and its calls into the
    /// SDK in their order, without line numbers, so that two runs can be compared.
    void trace(bool on);
};

/// What a command did.
struct Result {
    ky_status_t status = KY_STATUS_SUCCESS; ///< the module's answer
    std::string text;                       ///< what was done, in one line without its end; empty: nothing to say
    bool failed = false;                    ///< refused without a status; `text` says why
    std::string outputs = {};               ///< what came back through pointers, whatever the answer
};

} // namespace host

#endif
