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
    std::string text = fmt::format("{} {}: {}", line.module, level, line.text);
    text.erase(text.find_last_not_of(" \n") + 1);
    if (line.severity == KY_LOG_ERROR)
        errors.push_back(text);
    (void)std::fflush(stdout);
    terminal::clear_progress();
    fmt::print(file, "{}\n", text);
}

void Host::show(const Table &screen) const
{
    print(json ? screen.json() + "\n" : screen.text(terminal::has_colours(out)));
}

} // namespace host
