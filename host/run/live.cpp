#include "host/run/live.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <system_error>

#include <poll.h>
#include <sys/signalfd.h>

#include <fmt/format.h>

#include "host/output/terminal.h"
#include "host/run/control.h"
#include "host/run/privileges.h"
#include "host/run/ptf.h"
#include "host/screens/screens.h"
#include "sim/descriptor.h"
#include "sim/live.h"

namespace host {

namespace {

sigset_t ending_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

/// @param attachment "PORT=INTERFACE"
void attach(sim::Live &live, const Host &host, const std::string &attachment)
{
    const std::size_t sign = attachment.find('=');
    const std::vector<std::string> port = {attachment.substr(0, sign)};
    live.attach(Grammar("PORT").read(port, &host.names).number("PORT"), attachment.substr(sign + 1));
}

/// What both ways of forwarding have beside the frames.
struct Beside {
    Control &control;
    int stop;                 ///< readable: forwarding ends
    std::optional<User> user; ///< who the process becomes before it forwards
};

/// Carries out commands. The one that quits ends forwarding as a signal does.
void serve_commands(const Host &host, Control &control)
{
    control.serve();
    if (host.quitting)
        (void)std::raise(SIGTERM); // held, and what the loop waits for
}

/// Nothing that needs a privilege may follow, and no thread have been made: each would keep its own.
void give_up_privileges(const Beside &beside)
{
    if (beside.user)
        beside.control.give_to(beside.user->uid);
    give_up_privileges(beside.user);
}

void forward_interfaces(Host &host, const LiveOptions &options, const Beside &beside)
{
    sim::Live live(
        host.software_switch, [&beside](const std::string &notice) { beside.control.tell(notice); },
        [&host](std::uint32_t log_port) { return host.names.port(log_port); }, options.buffer_megabytes << 20);
    for (const std::string &attachment : options.attachments)
        attach(live, host, attachment);
    give_up_privileges(beside);
    beside.control.tell(fmt::format("forwarding between {} interfaces", options.attachments.size()));
    live.run(beside.stop, beside.control.descriptor(), [&] {
        serve_commands(host, beside.control);
        return true;
    });
    TextOutput answers(host.out, host.err, host.json);
    answers.show(counters_screen(host));
    answers.show(interfaces_screen(host, live.interfaces()));
}

void forward_ptf(Host &host, const LiveOptions &options, const Beside &beside)
{
    give_up_privileges(beside);
    PtfSocket ptf(host, options.ptf, [&beside](const std::string &notice) { beside.control.tell(notice); });
    beside.control.tell("forwarding at " + options.ptf);
    for (;;) {
        std::array<pollfd, 3> sources = {{{.fd = beside.stop, .events = POLLIN, .revents = 0},
                                          {.fd = beside.control.descriptor(), .events = POLLIN, .revents = 0},
                                          {.fd = ptf.descriptor(), .events = POLLIN, .revents = 0}}};
        if (poll(sources.data(), sources.size(), -1) < 0 && errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "waiting for frames");
        if (sources[0].revents != 0)
            break;
        if (sources[1].revents != 0)
            serve_commands(host, beside.control);
        if (sources[2].revents != 0)
            ptf.serve();
    }
    TextOutput(host.out, host.err, host.json).show(counters_screen(host));
}

} // namespace

void hold_signals()
{
    const sigset_t signals = ending_signals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    (void)std::signal(SIGPIPE, SIG_IGN); // a client that does not wait for its answers
}

Verdict forward(Host &host, const LiveOptions &options)
{
    try {
        std::optional<User> user;
        if (!options.user.empty())
            user = find_user(options.user);
        const sigset_t signals = ending_signals();
        const sim::Descriptor stop(signalfd(-1, &signals, SFD_CLOEXEC));
        for (Outlet *outlet : {&host.out, &host.err, host.log.outlet})
            outlet->set_pace(Outlet::Pace::never_waits);
        terminal::forbid_progress();
        Control control(host, options.control, options.control_files);
        const Beside beside{control, stop.get(), user};
        if (options.ptf.empty())
            forward_interfaces(host, options, beside);
        else
            forward_ptf(host, options, beside);
        return as_expected;
    } catch (const std::runtime_error &error) {
        host.err.write(fmt::format("kybridge-host: {}\n", error.what()));
        return wrong_script;
    }
}

} // namespace host
