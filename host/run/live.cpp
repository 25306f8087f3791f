#include "host/run/live.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <stdexcept>

#include <sys/signalfd.h>

#include <fmt/format.h>

#include "host/output/terminal.h"
#include "host/run/control.h"
#include "host/run/privileges.h"
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
        sim::Live live(
            host.software_switch, [&control](const std::string &notice) { control.tell(notice); },
            [&host](std::uint32_t log_port) { return host.names.port(log_port); }, options.buffer_megabytes << 20);
        for (const std::string &attachment : options.attachments)
            attach(live, host, attachment);
        if (user)
            control.give_to(user->uid);
        give_up_privileges(user);

        control.tell(fmt::format("forwarding between {} interfaces", options.attachments.size()));
        live.run(stop.get(), control.descriptor(), [&] {
            control.serve();
            if (host.quitting)
                (void)std::raise(SIGTERM); // held, and what the loop waits for
            return true;
        });
        host.show(counters_screen(host));
        host.show(interfaces_screen(host, live.interfaces()));
        return as_expected;
    } catch (const std::runtime_error &error) {
        host.err.write(fmt::format("kybridge-host: {}\n", error.what()));
        return wrong_script;
    }
}

} // namespace host
