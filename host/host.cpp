#include "host/host.h"

#include <fmt/format.h>

#include "host/output/terminal.h"

namespace host {

void Host::write_log(const sdk::LogLine &line)
{
    const char *level = line.severity == KY_LOG_ERROR    ? "error"
                        : line.severity == KY_LOG_NOTICE ? "notice"
                        : line.severity == KY_LOG_DEBUG  ? "debug"
                                                         : "trace";
    const bool has_place = line.format.starts_with("%s[%d]- ");
    const std::size_t start = has_place && !log.places ? line.text.find("]- ") + 3 : 0;
    std::string text = fmt::format("{} {}: {}", line.module, level, line.text.substr(start));
    text.erase(text.find_last_not_of(" \n") + 1);
    if (line.severity == KY_LOG_ERROR)
        log.errors.push_back(text);
    write_log(text);
}

void Host::write_log(const std::string &text)
{
    if (log.outlet == &err)
        out.flush(); // after everything that was printed before it
    terminal::clear_progress();
    log.outlet->write(text + "\n");
    if (log.outlet == &err)
        err.flush();
}

void Host::trace(bool on)
{
    tracing = on;
    log.places = !on;
    device.on_call = nullptr;
    if (on)
        device.on_call = [this](const sdk::Call &call) {
            write_log(std::string(std::size_t{2} * call.depth, ' ') + "SDK " + names.in(describe(call)));
        };
}

} // namespace host
