#include "host/host.h"

#include <fmt/format.h>

#include "host/output/terminal.h"

namespace host {

void Log::write(const sdk::LogLine &line)
{
    const char *level = line.severity == KY_LOG_ERROR    ? "error"
                        : line.severity == KY_LOG_NOTICE ? "notice"
                        : line.severity == KY_LOG_DEBUG  ? "debug"
                                                         : "trace";
    const bool has_place = line.format.starts_with("%s[%d]- ");
    const std::size_t start = has_place && !places ? line.text.find("]- ") + 3 : 0;
    std::string text = fmt::format("{} {}: {}", line.module, level, line.text.substr(start));
    text.erase(text.find_last_not_of(" \n") + 1);
    if (line.severity == KY_LOG_ERROR)
        errors.push_back(text);
    write(text);
}

void Log::write(const std::string &text) const
{
    (void)std::fflush(stdout);
    terminal::clear_progress();
    fmt::print(file, "{}\n", text);
}

void Host::show(const Table &screen) const
{
    print(json ? screen.json() + "\n" : screen.text(terminal::has_colours(out)));
}

void Host::trace(bool on)
{
    tracing = on;
    log.places = !on;
    device.on_call = nullptr;
    if (on)
        device.on_call = [this](const sdk::Call &call) {
            log.write(std::string(std::size_t{2} * call.depth, ' ') + "SDK " + names.in(describe(call)));
        };
}

} // namespace host
