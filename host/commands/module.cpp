// Start, stop, verbosity.
#include "host/commands/commands.h"

#include <fmt/format.h>

namespace host {

namespace {

Result start(Host &host, const Arguments &arguments)
{
    if (host.module.is_started())
        throw ScriptError("the module is started already; 'stop' comes first");

    ky_bridge_init_params_t params{};
    params.sdk_mode = arguments.number_or("mode", KY_BRIDGE_SDK_MODE_802_1D);
    params.sdk_mode_params.mode_1D.max_bridge_num = arguments.number_or("bridges", 64);
    params.sdk_mode_params.mode_1D.max_virtual_ports_num = arguments.number_or("virtual-ports", KY_VIRTUAL_PORTS_MAX);
    params.sdk_mode_params.mode_1D.multiple_vlan_bridge_mode = arguments.number_or("multiple-vlan", 0);
    const ky_status_t status = host.module.ky_bridge_init(&params);
    if (params.sdk_mode == KY_BRIDGE_SDK_MODE_802_1Q)
        return {status, "started in 802.1Q mode"};
    return {status, fmt::format("started in 802.1D mode: room for {} bridges and {} virtual ports",
                                params.sdk_mode_params.mode_1D.max_bridge_num,
                                params.sdk_mode_params.mode_1D.max_virtual_ports_num)};
}

/// What a stopped module has left in the hardware. Its regions, its ACLs and its registrations for events
/// stay by design.
std::string leftovers(const sdk::Device &device)
{
    std::size_t rules = 0;
    for (const auto &[region_id, region] : device.acl.regions)
        rules += region.rules.size();
    std::size_t memberships = 0;
    for (const auto &[vlan, ports] : device.vlans.members())
        for (const auto &[log_port, membership] : ports)
            memberships += membership.call != 0 ? 1 : 0;

    std::string left;
    const auto add = [&left](std::size_t count, std::string_view one, std::string_view many) {
        if (count != 0)
            left += fmt::format("{}{} {}", left.empty() ? "" : ", ", count, count == 1 ? one : many);
    };
    add(rules, "rule", "rules");
    add(device.acl.bindings.size(), "port binding", "port bindings");
    add(memberships, "VLAN membership", "VLAN memberships");
    add(device.acl.vlan_groups.size(), "VLAN group", "VLAN groups");
    add(device.memory.bytes(), "byte of memory", "bytes of memory");
    return left.empty() ? "nothing" : left;
}

Result stop(Host &host, const Arguments &)
{
    if (!host.module.is_started())
        return {host.module.ky_bridge_deinit(), "stopped: it was not started"};
    const ky_status_t status = host.module.ky_bridge_deinit();
    host.names.bridges.clear();
    return {status, fmt::format("stopped; left over: {}", leftovers(host.device))};
}

Result verbosity(Host &host, const Arguments &arguments)
{
    const std::uint32_t level = arguments.number("VERBOSITY");
    return {host.module.ky_bridge_log_verbosity_level_set(level),
            fmt::format("verbosity {}", name_of(verbosity_names(), level))};
}

Result trace(Host &host, const Arguments &arguments)
{
    host.trace(static_cast<Tracing>(arguments.number("TRACE")));
    return {KY_STATUS_SUCCESS, fmt::format("trace {}", arguments.text("TRACE"))};
}

Result limits(Host &, const Arguments &arguments)
{
    sdk::set_limits(arguments.number("bridges"), arguments.number("ports"));
    return {KY_STATUS_SUCCESS, fmt::format("limits of the device: {} bridges, {} logical ports",
                                           arguments.number("bridges"), arguments.number("ports"))};
}

} // namespace

CommandGroup module_commands()
{
    return {"THE MODULE",
            {
                {"start", "[mode MODE] [bridges N] [virtual-ports N] [multiple-vlan N]",
                 "Starts the module, in 802.1D mode for 64 bridges and 512 virtual ports unless told otherwise",
                 "start bridges 64 virtual-ports 512", start},
                {"stop", "", "Stops the module and tells what it has left in the hardware", "stop", stop},
                {"verbosity", "VERBOSITY", "Sets what the module logs; each level includes those before it",
                 "verbosity debug", verbosity},
                {"trace", "TRACE",
                 "Shows, with the log, each command and the calls into the SDK that it comes to, or only those that "
                 "change something; lines of the log then come without line numbers",
                 "trace on", trace},
                {"limits", "bridges N ports N", "Sets the limits of the device that a start is checked against",
                 "limits bridges 4 ports 16", limits},
            }};
}

} // namespace host
