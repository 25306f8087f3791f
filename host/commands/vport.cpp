// Virtual ports.
#include "host/commands/commands.h"

#include <fmt/format.h>

namespace host {

namespace {

Result set(Host &host, const Arguments &arguments, ky_access_cmd_t cmd, std::string_view done)
{
    const std::uint16_t bridge_id = arguments.number16("BRIDGE");
    const std::uint32_t log_port = arguments.number("PORT");
    const std::uint16_t vlan = arguments.number16("vlan");
    const std::uint32_t egress_mode = arguments.number("TAGGING");
    const ky_status_t status =
        host.module.ky_bridge_port_set(cmd, bridge_id, log_port, vlan, egress_mode, arguments.has("internal") ? 1 : 0);
    return answer_of(host, status,
                     fmt::format("virtual port {} VLAN {} {} {} bridge {}", host.names.port(log_port), vlan,
                                 name_of(tagging_names(), egress_mode), done, host.names.bridge(bridge_id)));
}

Result add_vport(Host &host, const Arguments &arguments)
{
    return set(host, arguments, KY_ACCESS_CMD_ADD, "added to");
}

Result remove(Host &host, const Arguments &arguments)
{
    return set(host, arguments, KY_ACCESS_CMD_DELETE, "deleted from");
}

Result delete_port(Host &host, const Arguments &arguments)
{
    const std::uint32_t log_port = arguments.number("PORT");
    return answer_of(host, host.module.ky_bridge_port_set(KY_ACCESS_CMD_DELETE_PORT, 0, log_port, 0, 0, 0),
                     fmt::format("all virtual ports of port {} deleted", host.names.port(log_port)));
}

} // namespace

CommandGroup vport_commands()
{
    return {"VIRTUAL PORTS",
            {
                {"vport add", "BRIDGE PORT vlan VLAN TAGGING [internal]",
                 "Attaches a port's VLAN to a bridge; its frames leave tagged or untagged",
                 "vport add red north vlan 100 tagged", add_vport},
                {"vport delete", "BRIDGE PORT vlan VLAN TAGGING [internal]", "Detaches a port's VLAN from its bridge",
                 "vport delete red north vlan 100 tagged", remove},
                {"vport delete-port", "PORT", "Detaches all VLANs of a port, whatever bridges they are attached to",
                 "vport delete-port north", delete_port},
            }};
}

} // namespace host
