#include "host/run/live.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

#include <sys/signalfd.h>

#include <fmt/format.h>

#include "host/run/control.h"
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

Verdict forward(Host &host, const std::vector<std::string> &attachments, const std::string &control_path,
                std::size_t buffer_size)
{
    try {
        const sigset_t signals = ending_signals();
        const sim::Descriptor stop(signalfd(-1, &signals, SFD_CLOEXEC));
        for (Outlet *outlet : {&host.out, &host.err, host.log.outlet})
            outlet->set_pace(Outlet::Pace::never_waits);
        Control control(host, control_path);
        sim::Live live(
            host.software_switch, [&control](const std::string &notice) { control.tell(notice); },
            [&host](std::uint32_t log_port) { return host.names.port(log_port); }, buffer_size);
        for (const std::string &attachment : attachments)
            attach(live, host, attachment);

        control.tell(fmt::format("forwarding between {} interfaces", attachments.size()));
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
