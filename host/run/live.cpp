#include "host/run/live.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>

#include <stdio_ext.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fmt/format.h>

#include "host/screens/screens.h"
#include "sim/descriptor.h"
#include "sim/live.h"

namespace host {

namespace {

using sim::Descriptor;

/// @throws std::runtime_error with the system's reason, when a call answered with -1
int checked(int answer, std::string_view what)
{
    if (answer < 0)
        throw std::runtime_error(fmt::format("{}: {}", what, std::strerror(errno))); // NOLINT(concurrency-mt-unsafe)
    return answer;
}

sigset_t ending_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

/// Bytes that arrive, cut into lines.
class LineBuffer {
public:
    /// @return false: the other end has closed
    bool read_from(int descriptor)
    {
        std::array<char, 4096> bytes{};
        const ssize_t count = read(descriptor, bytes.data(), bytes.size());
        if (count < 0)
            return errno == EAGAIN || errno == EINTR;
        text_.append(bytes.data(), static_cast<std::size_t>(count));
        return count > 0;
    }
    /// Makes a line of what came without a line end.
    void end_line()
    {
        if (!text_.empty())
            text_ += '\n';
    }
    std::optional<std::string> next_line()
    {
        const std::size_t end = text_.find('\n');
        if (end == std::string::npos)
            return std::nullopt;
        std::string line = text_.substr(0, end);
        text_.erase(0, end + 1);
        return line;
    }

private:
    std::string text_;
};

/// Where commands come from while frames flow.
class Control {
public:
    Control(Host &host, Interpreter &interpreter, const std::string &path)
        : host_(host), interpreter_(interpreter), path_(path),
          events_(checked(epoll_create1(EPOLL_CLOEXEC), "the control input"))
    {
        if (path.empty())
            // A regular file cannot be waited for; as standard input it has no commands for later either.
            epoll_ctl(events_.get(), EPOLL_CTL_ADD, STDIN_FILENO, &standard_input_);
        else
            listen_at_path();
    }
    ~Control()
    {
        if (listener_.get() >= 0)
            unlink(path_.c_str());
    }
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;

    int descriptor() const { return events_.get(); }

    /// Takes what has arrived. @return whether anything more can come
    bool take()
    {
        epoll_event event{};
        if (epoll_wait(events_.get(), &event, 1, 0) < 1)
            return true;
        if (event.data.fd == listener_.get())
            accept_client();
        else if (event.data.fd == STDIN_FILENO)
            return run_lines(STDIN_FILENO);
        else if (!run_lines(client_.get()))
            client_.reset(); // and with it its place in events_
        return true;
    }

private:
    void listen_at_path()
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path_.size() >= sizeof address.sun_path)
            throw std::runtime_error(
                fmt::format("{}: a path of a socket has at most {} characters", path_, sizeof address.sun_path - 1));
        path_.copy(address.sun_path, path_.size());
        struct stat existing {};
        if (stat(path_.c_str(), &existing) == 0 && S_ISSOCK(existing.st_mode))
            unlink(path_.c_str()); // of a host that did not end in order
        Descriptor listener(checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), path_));
        checked(bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), path_);
        checked(listen(listener.get(), 4), path_);
        listener_.reset(dup(listener.get()));
        watch(listener_.get());
    }

    void watch(int descriptor)
    {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = descriptor;
        checked(epoll_ctl(events_.get(), EPOLL_CTL_ADD, descriptor, &event), "the control input");
    }

    /// One client at a time; a new one takes the place of the last.
    void accept_client()
    {
        client_.reset(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        lines_ = {};
        if (client_.get() < 0)
            return;
        // One that does not read its answers must not hold up the frames; it is let go.
        const timeval patience{.tv_sec = 1, .tv_usec = 0};
        setsockopt(client_.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        watch(client_.get());
    }

    /// Carries out the lines that have arrived. @return false: the input has ended
    bool run_lines(int input)
    {
        bool open = lines_.read_from(input);
        if (!open)
            lines_.end_line();
        std::unique_ptr<std::FILE, int (*)(std::FILE *)> answers(nullptr, &std::fclose);
        if (input != STDIN_FILENO) {
            answers.reset(fdopen(dup(input), "w"));
            if (answers)
                host_.out = host_.err = answers.get();
        }
        for (auto line = lines_.next_line(); line && !host_.quitting && std::ferror(host_.out) == 0;
             line = lines_.next_line())
            interpreter_.run_line(*line, "control");
        (void)std::fflush(host_.out);
        if (answers && std::ferror(answers.get()) != 0) {
            __fpurge(answers.get()); // or closing would wait for the client once more
            open = false;
        }
        host_.out = stdout;
        host_.err = stderr;
        return open;
    }

    Host &host_;
    Interpreter &interpreter_;
    std::string path_;
    Descriptor events_;
    Descriptor listener_;
    Descriptor client_;
    LineBuffer lines_;
    epoll_event standard_input_{EPOLLIN, {.fd = STDIN_FILENO}};
};

/// Attaches what "PORT=INTERFACE" says.
void attach(sim::Live &live, const Host &host, const std::string &attachment)
{
    const std::size_t sign = attachment.find('=');
    if (sign == std::string::npos || sign == 0 || sign + 1 == attachment.size())
        throw std::runtime_error(
            fmt::format("--attach {}: expected PORT=INTERFACE, for example north=eth1", attachment));
    const std::vector<std::string> port = {attachment.substr(0, sign)};
    live.attach(Grammar("PORT").read(port, &host.names).number("PORT"), attachment.substr(sign + 1));
}

} // namespace

void hold_signals()
{
    const sigset_t signals = ending_signals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    (void)std::signal(SIGPIPE, SIG_IGN); // a client that does not wait for its answers
}

Verdict forward(Host &host, Interpreter &interpreter, const std::vector<std::string> &attachments,
                const std::string &control_path)
{
    try {
        const sigset_t signals = ending_signals();
        const Descriptor stop(checked(signalfd(-1, &signals, SFD_CLOEXEC), "waiting for signals"));
        sim::Live live(
            host.software_switch,
            [](const std::string &notice) {
                fmt::print("{}\n", notice);
                (void)std::fflush(stdout);
            },
            [&host](std::uint32_t log_port) { return host.names.port(log_port); });
        for (const std::string &attachment : attachments)
            attach(live, host, attachment);
        Control control(host, interpreter, control_path);

        fmt::print("forwarding between {} interfaces\n", attachments.size());
        (void)std::fflush(stdout);
        live.run(stop.get(), control.descriptor(), [&] {
            const bool more = control.take();
            if (host.quitting)
                (void)std::raise(SIGTERM); // held, and what the loop waits for
            return more;
        });
        host.show(counters_screen(host));
        host.show(interfaces_screen(host, live.interfaces()));
        return as_expected;
    } catch (const std::runtime_error &error) {
        fmt::print(stderr, "kybridge-host: {}\n", error.what());
        return wrong_script;
    }
}

} // namespace host
