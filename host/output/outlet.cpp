#include "host/output/outlet.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include <poll.h>
#include <unistd.h>

#include <fmt/format.h>

namespace host {

namespace {

constexpr std::size_t gathered = 64 << 10;         ///< bytes that are gathered before they are written without a flush
constexpr std::size_t flushed_at_once = 256 << 10; ///< bytes; all that one flush writes to a quick reader

} // namespace

void Outlet::write(std::string_view text)
{
    if (pace_ == Pace::never_waits && kept_.size() + text.size() > limit_)
        return lose("its reader takes nothing");
    kept_ += text;
    if (kept_.size() >= gathered || is_terminal_)
        flush();
}

void Outlet::flush()
{
    std::size_t written = 0;
    while (written < kept_.size() && (pace_ == Pace::waits || written < flushed_at_once)) {
        // A pipe that can be written to takes so much without waiting.
        const std::size_t part = std::min<std::size_t>(kept_.size() - written, PIPE_BUF);
        if (pace_ == Pace::never_waits && !wait_until_writable(0))
            break;
        const ssize_t count = ::write(descriptor_, kept_.data() + written, part);
        if (count >= 0) {
            written += static_cast<std::size_t>(count);
        } else if (errno == EAGAIN) {
            if (pace_ == Pace::never_waits)
                break;
            wait_until_writable(-1); // it has been made non-blocking by somebody who shares it
        } else if (errno != EINTR) {
            kept_.clear();
            return lose(std::strerror(errno)); // NOLINT(concurrency-mt-unsafe)
        }
    }
    kept_.erase(0, written);
}

void Outlet::finish(Clock::time_point deadline)
{
    const auto left = [deadline] {
        return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count());
    };
    flush();
    while (!kept_.empty() && left() > 0 && wait_until_writable(left()))
        flush();
    if (!kept_.empty())
        lose("its reader takes nothing");
}

bool Outlet::wait_until_writable(int milliseconds) const
{
    pollfd waiting{descriptor_, POLLOUT, 0};
    return poll(&waiting, 1, milliseconds) > 0;
}

void Outlet::lose(std::string_view reason)
{
    if (!has_lost_ && complaints_ != nullptr) {
        complaints_->write(fmt::format("kybridge-host: {}: {}; what it would have got is lost\n", name_, reason));
        complaints_->flush();
    }
    has_lost_ = true;
}

} // namespace host
