#include "host/terminal.h"

#include <cstdlib>
#include <utility>

#include <unistd.h>

#include <fmt/format.h>

namespace terminal {

namespace {

bool colours_allowed = true;

constexpr std::size_t step_shown = 1000; ///< of so many steps one is shown

} // namespace

void forbid_colours()
{
    colours_allowed = false;
}

bool has_colours(std::FILE *file)
{
    const char *no_color = std::getenv("NO_COLOR"); // NOLINT(concurrency-mt-unsafe): nobody changes it
    return colours_allowed && (no_color == nullptr || *no_color == '\0') && isatty(fileno(file)) != 0;
}

std::string bold(const std::string &text)
{
    return "\x1b[1m" + text + "\x1b[0m";
}

std::string red(const std::string &text)
{
    return "\x1b[31m" + text + "\x1b[0m";
}

Progress::Progress(std::string work, std::string unit)
    : work_(std::move(work)), unit_(std::move(unit)), visible_(isatty(STDERR_FILENO) != 0)
{
}

Progress::~Progress()
{
    if (visible_ && done_ >= step_shown)
        fmt::print(stderr, "\r\x1b[K");
}

void Progress::step()
{
    if (++done_ % step_shown == 0 && visible_)
        fmt::print(stderr, "\r{}: {} {}\x1b[K", work_, done_, unit_);
}

} // namespace terminal
