// What a host sets up in the SDK beside the module: VLANs, switch partitions, planned faults.
#include "host/commands/commands.h"

#include <fmt/format.h>

namespace host {

namespace {

Result vlan_join(Host &host, const Arguments &arguments)
{
    const std::uint32_t log_port = arguments.number("PORT");
    const std::uint16_t vlan = arguments.number16("VID");
    const std::uint32_t mode = arguments.number("TAGGING");
    host.device.vlans.join(log_port, vlan, mode);
    return {KY_STATUS_SUCCESS,
            fmt::format("port {} joined VLAN {} {}", host.names.port(log_port), vlan, name_of(tagging_names(), mode))};
}

Result vlan_leave(Host &host, const Arguments &arguments)
{
    const std::uint32_t log_port = arguments.number("PORT");
    const std::uint16_t vlan = arguments.number16("VID");
    const std::string port = host.names.port(log_port);
    if (!host.device.vlans.leave(log_port, vlan))
        return {KY_STATUS_ENTRY_NOT_FOUND, fmt::format("port {} is no member of VLAN {}", port, vlan)};
    return {KY_STATUS_SUCCESS, fmt::format("port {} left VLAN {}", port, vlan)};
}

Result swid_serve(Host &host, const Arguments &arguments)
{
    const auto swid = static_cast<std::uint8_t>(arguments.number("SWID"));
    host.device.bridge_swids.insert(swid);
    return {KY_STATUS_SUCCESS, fmt::format("SWID {} is served by bridges", swid)};
}

Result swid_ignore(Host &host, const Arguments &arguments)
{
    const auto swid = static_cast<std::uint8_t>(arguments.number("SWID"));
    host.device.bridge_swids.erase(swid);
    return {KY_STATUS_SUCCESS, fmt::format("SWID {} is not served by bridges", swid)};
}

Result swid_mode(Host &host, const Arguments &arguments)
{
    const auto swid = static_cast<std::uint8_t>(arguments.number("SWID"));
    host.device.mstp_modes[swid] = arguments.number("STP");
    return {KY_STATUS_SUCCESS,
            fmt::format("spanning-tree mode of SWID {}: {}", swid, name_of(stp_mode_names(), arguments.number("STP")))};
}

Result swid_validation(Host &host, const Arguments &arguments)
{
    *host.module.swid_validation_func_ptr = arguments.number("SWITCH") != 0 ? sdk_validate_swid : nullptr;
    return {KY_STATUS_SUCCESS, fmt::format("validation of SWIDs {}", arguments.text("SWITCH"))};
}

Result strict(Host &host, const Arguments &arguments)
{
    host.device.adviser.strict = arguments.number("SWITCH") != 0;
    return {KY_STATUS_SUCCESS, host.device.adviser.strict ? "the adviser keeps every registration"
                                                          : "the adviser keeps each registration once"};
}

Result acl_bind(Host &host, const Arguments &arguments)
{
    const std::uint32_t log_port = arguments.number("PORT");
    const auto direction = static_cast<sdk::Direction>(arguments.number("SIDE"));
    const std::uint32_t acl_id = arguments.number("ACL");
    host.device.acl.bindings[{log_port, direction}] = {acl_id, 0};
    return {KY_STATUS_SUCCESS,
            fmt::format("port {} bound {} to ACL {}", host.names.port(log_port), sdk::name(direction), acl_id)};
}

Result acl_unbind(Host &host, const Arguments &arguments)
{
    const std::uint32_t log_port = arguments.number("PORT");
    const auto direction = static_cast<sdk::Direction>(arguments.number("SIDE"));
    const std::string bound = fmt::format("port {} {}", host.names.port(log_port), sdk::name(direction));
    if (host.device.acl.bindings.erase({log_port, direction}) == 0)
        return {KY_STATUS_ENTRY_NOT_BOUND, bound + " is bound to no ACL"};
    return {KY_STATUS_SUCCESS, bound + " unbound"};
}

Result next_id(Host &host, const Arguments &arguments)
{
    const std::uint32_t number = arguments.number("N");
    sdk::AclManager &acl = host.device.acl;
    switch (arguments.number("ACL-OBJECT")) {
    case 0:
        acl.next_region_id = number;
        break;
    case 1:
        acl.next_acl_id = number;
        break;
    default:
        if (number == 0 || number >= KY_VLAN_GROUP_NONE)
            throw ScriptError(fmt::format("{} is no VLAN group: expected 1 to {}", number, KY_VLAN_GROUP_NONE - 1));
        acl.next_vlan_group = static_cast<std::uint16_t>(number);
        break;
    }
    return {KY_STATUS_SUCCESS, fmt::format("the next {} gets the number {}", arguments.text("ACL-OBJECT"), number)};
}

Result fail(Host &host, const Arguments &arguments)
{
    const std::uint32_t service = arguments.number("SERVICE");
    const std::uint32_t nth = arguments.number("NTH");
    const ky_status_t status = arguments.number("with");
    if (service == sdk::service_count)
        host.device.faults.fail_any(nth, status);
    else
        host.device.faults.fail(sdk::Service{service}, nth, status);
    return {KY_STATUS_SUCCESS, fmt::format("fault planned: {} of {} answers {}",
                                           nth == 1 ? "the next call" : fmt::format("call {} from now", nth),
                                           arguments.text("SERVICE"), numbered_status(status))};
}

Result faults_clear(Host &host, const Arguments &)
{
    host.device.faults.clear();
    return {KY_STATUS_SUCCESS, "no fault is planned any more"};
}

} // namespace

CommandGroup sdk_commands()
{
    return {
        "THE SDK AROUND THE MODULE",
        {
            {"vlan join", "PORT VID TAGGING", "Makes a port a plain member of a VLAN, as a host's own configuration",
             "vlan join north 20 untagged", vlan_join},
            {"vlan leave", "PORT VID", "Takes a port out of a VLAN, as a host's own configuration",
             "vlan leave north 20", vlan_leave},
            {"swid serve", "SWID", "Lets bridges serve a switch partition; only SWID 0 is served at first",
             "swid serve 1", swid_serve},
            {"swid ignore", "SWID", "Lets bridges no longer serve a switch partition", "swid ignore 1", swid_ignore},
            {"swid mode", "SWID STP", "Sets the spanning-tree mode of a switch partition; it is rstp at first",
             "swid mode 1 mstp", swid_mode},
            {"strict", "SWITCH",
             "Whether the stand-in's adviser keeps every registration, as one may that does not compare them: after a "
             "restart each event is delivered twice then",
             "strict on", strict},
            {"swid validation", "SWITCH",
             "Installs the function that tells the module which SWIDs bridges serve, or none", "swid validation off",
             swid_validation},
            {"acl bind", "PORT SIDE ACL", "Binds a port to another ACL, as a host's own configuration",
             "acl bind north ingress 77", acl_bind},
            {"acl unbind", "PORT SIDE", "Takes a port's binding away, whoever made it", "acl unbind north ingress",
             acl_unbind},
            {"acl next", "ACL-OBJECT N", "Lets the ACL manager count on from a number, as another one may have counted",
             "acl next region 7", next_id},
            {"fail", "SERVICE NTH with STATUS",
             "Plans a fault: one of the next calls of a service, or of any, is answered with a status",
             "fail vlan_port_multi_vlans_set next with NO_RESOURCES", fail},
            {"faults clear", "", "Forgets the planned faults that have not happened yet", "faults clear", faults_clear},
        }};
}

} // namespace host
