// Logical ports: in the stand-in, and as the module is told of them.
#include "host/commands/commands.h"

#include <algorithm>

#include <fmt/format.h>

namespace host {

sdk::Port &known_port(Host &host, std::uint32_t log_port)
{
    sdk::Port *port = host.device.ports.find(log_port);
    if (port == nullptr)
        throw ScriptError(
            fmt::format("the SDK has no port {}; 'port add' or 'port announce' makes it", host.names.port(log_port)));
    return *port;
}

namespace {

/// Makes the port, or changes what is given of it, and names it.
sdk::Port &make_port(Host &host, const Arguments &arguments)
{
    const std::uint32_t log_port = arguments.number("PORT");
    sdk::Port &port = host.device.ports.ports[log_port];
    port.swid = static_cast<std::uint8_t>(arguments.number_or("swid", port.swid));
    port.kind = arguments.number_or("kind", port.kind);
    port.router_port = port.router_port || arguments.has("router");
    port.lag_member = port.lag_member || arguments.has("lag-member");
    if (arguments.has("as"))
        host.names.ports.give(arguments.text("as"), log_port);
    return port;
}

/// "port north (0x00010001)", or only the number of a port without a name.
std::string port_text(const Host &host, std::uint32_t log_port)
{
    const std::string *name = host.names.ports.find(log_port);
    return name != nullptr ? fmt::format("port {} (0x{:08X})", *name, log_port)
                           : fmt::format("port 0x{:08X}", log_port);
}

Result deliver(Host &host, std::uint32_t event_type, std::uint32_t log_port, const std::string &done)
{
    const sdk::Port &port = known_port(host, log_port);
    ky_port_event_t event{};
    event.log_port = log_port;
    event.swid = port.swid;
    event.port_kind = port.kind;
    const ky_status_t status = host.device.adviser.deliver(event_type, event);
    const bool is_heard = host.module.is_started() && host.device.adviser.callbacks.contains(event_type);
    return {status, fmt::format("{} {} SWID {}{}", port_text(host, log_port), done, port.swid,
                                is_heard ? "" : ": nobody listens, the module is not started")};
}

Result add_port(Host &host, const Arguments &arguments)
{
    const sdk::Port &port = make_port(host, arguments);
    return {KY_STATUS_SUCCESS,
            fmt::format("{} added in SWID {}", port_text(host, arguments.number("PORT")), port.swid)};
}

Result announce(Host &host, const Arguments &arguments)
{
    make_port(host, arguments);
    const std::uint32_t log_port = arguments.number("PORT");
    Result result = deliver(host, KY_ADVISER_EVENT_PORT_ADD_INTO_SWID, log_port, "announced in");
    if (result.status == KY_STATUS_SUCCESS && std::ranges::count(host.announced, log_port) == 0)
        host.announced.push_back(log_port);
    return result;
}

Result withdraw(Host &host, const Arguments &arguments)
{
    return deliver(host, KY_ADVISER_EVENT_PORT_DEL_FROM_SWID, arguments.number("PORT"), "withdrawn from");
}

Result set(Host &host, const Arguments &arguments)
{
    const std::uint32_t log_port = arguments.number("PORT");
    sdk::Port &port = known_port(host, log_port);
    std::string settings;
    const auto is_given = [&](const char *attribute) {
        if (!arguments.has(attribute))
            return false;
        settings += fmt::format("{} {} {}", settings.empty() ? "" : ",", attribute, arguments.text(attribute));
        return true;
    };
    if (is_given("router"))
        port.router_port = arguments.number("router") != 0;
    if (is_given("lag"))
        port.lag_member = arguments.number("lag") != 0;
    if (is_given("pvid"))
        port.pvid = arguments.text("pvid") == "none" ? std::nullopt : std::optional(arguments.number16("pvid"));
    if (is_given("rstp"))
        port.rstp_state = static_cast<sdk::RstpState>(arguments.number("rstp"));
    if (is_given("link"))
        host.software_switch.set_link(log_port, arguments.number("link") != 0);
    return {KY_STATUS_SUCCESS, fmt::format("{}:{}", port_text(host, log_port), settings)};
}

void check_set(const Arguments &arguments, const Names *)
{
    for (const char *attribute : {"router", "lag", "pvid", "rstp", "link"})
        if (arguments.has(attribute))
            return;
    throw ScriptError("nothing to set is given; one of router, lag, pvid, rstp and link follows the port");
}

Result clear(Host &host, const Arguments &arguments)
{
    const std::uint32_t log_port = arguments.number("PORT");
    const bool release = arguments.has("release");
    return answer_of(host, host.module.ky_bridge_clear_port(log_port, release ? 1 : 0),
                     fmt::format("{} cleared{}", port_text(host, log_port), release ? " and released" : ""));
}

Result restore(Host &host, const Arguments &arguments)
{
    const std::uint32_t log_port = arguments.number("PORT");
    const sdk::Port *port = host.device.ports.find(log_port);
    const auto swid = static_cast<std::uint8_t>(arguments.number_or("swid", port != nullptr ? port->swid : 0));
    return answer_of(host, host.module.ky_bridge_clear_undo(log_port, swid),
                     fmt::format("{} restored in SWID {}", port_text(host, log_port), swid));
}

} // namespace

CommandGroup port_commands()
{
    return {"LOGICAL PORTS",
            {
                {"port announce", "PORT [as NAME] [swid SWID] [kind KIND] [router] [lag-member]",
                 "Tells the module that a port has entered a switch partition, and makes it in the SDK if it is new",
                 "port announce 0x10001 as north", announce},
                {"port withdraw", "PORT", "Tells the module that a port has left its switch partition",
                 "port withdraw north", withdraw},
                {"port add", "PORT [as NAME] [swid SWID] [kind KIND] [router] [lag-member]",
                 "Makes a port in the SDK, or changes it, without telling the module",
                 "port add 0x10002 as south swid 1", add_port},
                {"port set", "PORT [router SWITCH] [lag SWITCH] [pvid PVID] [rstp STATE] [link LINK]",
                 "Changes a port in the SDK", "port set north pvid 100 rstp forwarding", set, check_set},
                {"port clear", "PORT [release]",
                 "Takes a port out of all bridges and, with 'release', lets the module forget it",
                 "port clear north release", clear},
                {"port restore", "PORT [swid SWID]", "Brings a released port back, without its virtual ports",
                 "port restore north", restore},
            }};
}

} // namespace host
