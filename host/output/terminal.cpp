#include "host/output/terminal.h"

#include <cstdlib>
#include <utility>

#include <unistd.h>

#include <fmt/format.h>

namespace terminal {

namespace {

bool colours_allowed = true;
bool progress_allowed = true;
bool progress_shown = false;

constexpr std::size_t step_shown = 1000; ///< of so many steps one is shown

} // namespace

void forbid_colours()
{
    colours_allowed = false;
}

void forbid_progress()
{
    progress_allowed = false;
}

bool has_colours(int descriptor)
{
    const char *no_color = std::getenv("NO_COLOR"); // NOLINT(concurrency-mt-unsafe): nobody changes it
    return colours_allowed && (no_color == nullptr || *no_color == '\0') && isatty(descriptor) != 0;
}

std::string bold(const std::string &text)
{
    return "\x1b[1m" + text + "\x1b[0m";
}

std::string red(const std::string &text)
{
    return "\x1b[31m" + text + "\x1b[0m";
}

Progress::Progress(std::string work, std::string unit, bool wanted)
    : work_(std::move(work)), unit_(std::move(unit)), visible_(wanted && progress_allowed && isatty(STDERR_FILENO) != 0)
{
}

Progress::~Progress()
{
    clear_progress();
}

void Progress::step()
{
    if (++done_ % step_shown != 0 || !visible_)
        return;
    fmt::print(stderr, "\r{}: {} {}\x1b[K", work_, done_, unit_);
    progress_shown = true;
}

void clear_progress()
{
    if (progress_shown)
        fmt::print(stderr, "\r\x1b[K");
    progress_shown = false;
}

} // namespace terminal
