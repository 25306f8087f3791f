#include "host/run/session.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <unistd.h>

#include <fmt/format.h>

namespace host {

namespace {

constexpr std::size_t most_unread = 64 << 10; ///< bytes of answers

} // namespace

CommandDialogue::CommandDialogue(Host &host, Outlet &answers, Outlet &complaints, const Files &files)
    : output_(answers, complaints, host.json), interpreter_(host, output_, files)
{
}

void CommandDialogue::refuse_line()
{
    output_.complain(fmt::format("control: a line of more than {} bytes; this ends the session", longest_line()));
}

void Session::receive()
{
    std::array<char, 16384> bytes{};
    const ssize_t count = read(input_, bytes.data(), bytes.size());
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (count > 0) {
        received_.append(bytes.data(), static_cast<std::size_t>(count));
        return;
    }
    open_ = false;
    if (!received_.empty() && received_.back() != '\n')
        received_ += '\n'; // the last line needs no end
}

bool Session::has_work() const
{
    const bool has_line = received_.find('\n') != std::string::npos || received_.size() > dialogue_->longest_line();
    return answers_.pending() <= most_unread && (dialogue_->is_busy() || has_line);
}

void Session::work()
{
    if (dialogue_->is_busy())
        return dialogue_->go_on();
    const std::size_t end = std::min(received_.find('\n'), received_.size());
    if (end > dialogue_->longest_line()) {
        dialogue_->refuse_line();
        open_ = false;
        received_.clear();
        return;
    }
    const std::string line = received_.substr(0, end);
    received_.erase(0, end + 1);
    dialogue_->begin(line);
}

} // namespace host
