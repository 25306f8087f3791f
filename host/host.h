/// What the commands of a script work on.
#ifndef KYBRIDGE_HOST_HOST_H
#define KYBRIDGE_HOST_HOST_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "host/files.h"
#include "host/language/names.h"
#include "host/module/module.h"
#include "host/output/outlet.h"
#include "host/output/output.h"
#include "host/output/tables.h"
#include "sdk/sdk.h"
#include "sim/switch.h"
#include "sim/trace.h"

namespace host {

/// Where the module's log goes.
struct Log {
    struct Line {
        std::uint32_t severity = 0; ///< ky_log_severity
        std::string module;         ///< "BRIDGE"
        std::string message;        ///< without its line end

        std::string text() const; ///< "BRIDGE error: message"
    };

    Outlet *outlet;
    std::vector<Line> lines = {}; ///< of the current command, or of the last part of it
    bool places = true;           ///< whether debug and trace lines tell file and line of the module's source
};

/// "error", "notice", "debug" or "trace". @param severity ky_log_severity
std::string_view severity_name(std::uint32_t severity);

/// What a transcript shows of the calls into the SDK.
enum class Tracing : std::uint8_t {
    off,
    on,     ///< every call
    changes ///< not those that only ask, unless a planned fault answers them
};

/// A hardware address for a port, or for the station behind it, where nobody gave one: 02:00 and the port's number.
sim::Mac station_at(std::uint32_t log_port);

/// Who gives commands: a script, or one of the clients. What became of a frame is told to its sender only.
struct Giver {
    Output *output;                              ///< where answers and complaints go
    const Files *files;                          ///< that its commands may read and make
    std::optional<sim::Outcome> last_frame = {}; ///< what became of the last frame that it sent by hand
    std::uint64_t frames_sent = 0;               ///< by hand: described, or given as bytes
};

/// The loaded module, the device under it, and what scripts have named and remembered.
struct Host {
    Module module;
    sdk::Device &device = sdk::device();
    Names names = {};
    std::map<std::string, std::vector<std::string>> remembered = {}; ///< facts by the name they were remembered under

    Outlet err = Outlet(STDERR_FILENO, "standard error");
    Outlet out = Outlet(STDOUT_FILENO, "standard output", &err);
    Log log = {&err};
    Giver *giver = nullptr; ///< of the current command
    bool json = false;      ///< screens come out as JSON
    Tracing tracing = Tracing::off;
    bool quitting = false; ///< no further command is wanted

    sim::Switch software_switch = sim::Switch();
    std::vector<std::uint32_t> announced = {}; ///< logical ports, each once, in the order of their announcements

    /// Sends a frame into a port by hand. @return what became of it: the giver's last frame
    const sim::Outcome &send(std::uint32_t log_port, sim::BytesView frame);
    sim::PortNames port_names() const; ///< the names that traces tell ports by; not to outlive the host

    void print(std::string_view text) const { giver->output->print(text); }
    void show(const Table &screen) const { giver->output->show(screen); }
    void write_log(const sdk::LogLine &line);
    void write_log(const std::string &text); ///< a line of the host's own

    /// Turns a transcript on or off: each command as it was written, then the module's log and its calls into the
    /// SDK in their order, without line numbers, so that two runs can be compared.
    void trace(Tracing what);
};

/// What a command did.
struct Result {
    ky_status_t status = KY_STATUS_SUCCESS; ///< the module's answer
    std::string text;                       ///< what was done, in one line without its end; empty: nothing to say
    bool failed = false;                    ///< refused without a status; `text` says why
    std::string outputs = {};               ///< what came back through pointers, whatever the answer

    /// Set, instead of all else, by a command that takes long and has done a part of its work: does the next part, a
    /// millisecond's work at most, and gives the result of the whole, or again what is left.
    std::function<Result()> rest = {};
};

} // namespace host

#endif
