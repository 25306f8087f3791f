// Bridges: their life, references, learning mode and VLAN groups.
#include "host/commands/commands.h"

#include <fmt/format.h>

namespace host {

namespace {

Result create(Host &host, const Arguments &arguments)
{
    std::uint16_t bridge_id = 0;
    const ky_status_t status =
        host.module.ky_bridge_set(KY_ACCESS_CMD_CREATE, &bridge_id, arguments.has("internal") ? 1 : 0);
    if (status != KY_STATUS_SUCCESS || !host.module.is_started())
        return answer_of(host, status, "");

    if (arguments.has("as"))
        host.names.bridges.give(arguments.text("as"), bridge_id);
    else
        host.names.bridges.forget(bridge_id);
    std::uint16_t int_vlan = 0;
    host.module.ky_bridge_int_vlan_id_get(bridge_id, &int_vlan, 1);
    return {status, fmt::format("bridge {} created: {}bridge {}, internal VLAN {}", host.names.bridge(bridge_id),
                                arguments.has("internal") ? "internal " : "", bridge_id, int_vlan)};
}

Result destroy(Host &host, const Arguments &arguments)
{
    std::uint16_t bridge_id = arguments.number16("BRIDGE");
    const std::string name = host.names.bridge(bridge_id);
    const ky_status_t status =
        host.module.ky_bridge_set(KY_ACCESS_CMD_DESTROY, &bridge_id, arguments.has("internal") ? 1 : 0);
    if (status == KY_STATUS_SUCCESS)
        host.names.bridges.forget(bridge_id);
    return answer_of(host, status, fmt::format("bridge {} destroyed", name));
}

Result reference(Host &host, const Arguments &arguments)
{
    const std::uint16_t bridge_id = arguments.number16("BRIDGE");
    return answer_of(host, host.module.ky_bridge_ref_cnt_increase(bridge_id),
                     fmt::format("reference on bridge {} taken", host.names.bridge(bridge_id)));
}

Result unreference(Host &host, const Arguments &arguments)
{
    const std::uint16_t bridge_id = arguments.number16("BRIDGE");
    return answer_of(host, host.module.ky_bridge_ref_cnt_decrease(bridge_id),
                     fmt::format("reference on bridge {} given back", host.names.bridge(bridge_id)));
}

Result learning(Host &host, const Arguments &arguments)
{
    const std::uint16_t bridge_id = arguments.number16("BRIDGE");
    const std::uint32_t is_internal = arguments.has("internal") ? 1 : 0;
    ky_fdb_learn_mode_t mode = 0;
    ky_status_t status = KY_STATUS_SUCCESS;
    if (arguments.has("LEARNING")) {
        mode = arguments.number("LEARNING");
        status = host.module.ky_bridge_set_learning_mode(bridge_id, mode, is_internal);
    } else {
        status = host.module.ky_bridge_get_learning_mode(bridge_id, &mode, is_internal);
    }
    return answer_of(host, status,
                     fmt::format("learning mode of bridge {}{}: {}", host.names.bridge(bridge_id),
                                 arguments.has("LEARNING") ? " set" : "", name_of(learning_names(), mode)));
}

Result bind(Host &host, const Arguments &arguments)
{
    const std::uint16_t bridge_id = arguments.number16("BRIDGE");
    const std::uint32_t direction = arguments.number("DIRECTION");
    std::uint16_t group = 0;
    const ky_status_t status =
        host.module.ky_bridge_int_vlan_group_set(KY_ACCESS_CMD_BIND, bridge_id, direction, &group);
    return answer_of(host, status,
                     fmt::format("bridge {} bound for {}: VLAN group {}", host.names.bridge(bridge_id),
                                 name_of(direction_names(), direction), group));
}

Result unbind(Host &host, const Arguments &arguments)
{
    const std::uint16_t bridge_id = arguments.number16("BRIDGE");
    const std::uint32_t direction = arguments.number("DIRECTION");
    return answer_of(
        host, host.module.ky_bridge_int_vlan_group_set(KY_ACCESS_CMD_UNBIND, bridge_id, direction, nullptr),
        fmt::format("bridge {} unbound for {}", host.names.bridge(bridge_id), name_of(direction_names(), direction)));
}

} // namespace

CommandGroup bridge_commands()
{
    return {"BRIDGES ('internal' also finds bridges that were created as internal ones)",
            {
                {"bridge create", "[as NAME] [internal]", "Creates a bridge", "bridge create as red", create},
                {"bridge destroy", "BRIDGE [internal]", "Destroys an empty bridge", "bridge destroy red", destroy},
                {"bridge ref", "BRIDGE", "Takes a reference on a bridge, which keeps it from being destroyed",
                 "bridge ref red", reference},
                {"bridge unref", "BRIDGE", "Gives a reference back", "bridge unref red", unreference},
                {"learning", "BRIDGE [LEARNING] [internal]", "Sets a bridge's learning mode, or reads it",
                 "learning red auto", learning},
                {"bind", "BRIDGE DIRECTION", "Binds a bridge to its VLAN group in a direction, for a user's ACLs",
                 "bind red ingress", bind},
                {"unbind", "BRIDGE DIRECTION", "Unbinds a bridge from its VLAN group in a direction",
                 "unbind red ingress", unbind},
            }};
}

} // namespace host
