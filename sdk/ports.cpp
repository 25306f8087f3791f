// The port module, SWID validation, the spanning tree, and the SDK's own entry for virtual ports. A user
// may name any port, so an unknown one is an ordinary answer here.
#include "sdk/recorder.h"

namespace sdk {

std::string_view name(RstpState state)
{
    switch (state) {
    case RstpState::discarding:
        return "discarding";
    case RstpState::learning:
        return "learning";
    case RstpState::forwarding:
        return "forwarding";
    }
    return "unknown";
}

Port *PortModule::find(std::uint32_t log_port)
{
    const auto port = ports.find(log_port);
    return port == ports.end() ? nullptr : &port->second;
}

const Port *PortModule::find(std::uint32_t log_port) const
{
    const auto port = ports.find(log_port);
    return port == ports.end() ? nullptr : &port->second;
}

namespace {

/// Serves a GET of one number: `read` yields it, or nothing when there is no such entry.
template <typename Number, typename Read>
ky_status_t serve_get(Service service, ky_access_cmd_t cmd, std::uint64_t of, Number *number, Read read)
{
    return serve(service, {cmd, of}, [&](Recorder &call) -> ky_status_t {
        if (cmd != KY_ACCESS_CMD_GET)
            return call.refuse_cmd(cmd);
        if (number == nullptr)
            return call.refuse(KY_STATUS_PARAM_NULL, "the place for the result is NULL");
        const std::optional<Number> value = read();
        if (!value)
            return KY_STATUS_ENTRY_NOT_FOUND;
        *number = *value;
        call.set_result(*value);
        return KY_STATUS_SUCCESS;
    });
}

/// As serve_get, of one number of a port.
template <typename Number, typename Read>
ky_status_t serve_port_get(Service service, ky_access_cmd_t cmd, std::uint32_t log_port, Number *number, Read read)
{
    return serve_get(service, cmd, log_port, number, [&]() -> std::optional<Number> {
        const Port *port = device().ports.find(log_port);
        return port != nullptr ? std::optional<Number>(read(*port)) : std::nullopt;
    });
}

} // namespace
} // namespace sdk

using sdk::device;
using sdk::Port;
using sdk::Recorder;
using sdk::serve;
using sdk::Service;

ky_status_t port_db_check_port_mode_router_port(uint32_t log_port)
{
    return serve(Service::port_db_check_port_mode_router_port, {log_port}, [=](Recorder &) -> ky_status_t {
        const Port *port = device().ports.find(log_port);
        return port != nullptr && port->router_port ? KY_STATUS_SUCCESS : KY_STATUS_ENTRY_NOT_FOUND;
    });
}

ky_status_t port_swid_alloc_get(ky_access_cmd_t cmd, uint32_t log_port, uint8_t *swid)
{
    return sdk::serve_port_get(Service::port_swid_alloc_get, cmd, log_port, swid,
                               [](const Port &port) { return port.swid; });
}

ky_status_t port_lag_member_state_get(ky_access_cmd_t cmd, uint32_t log_port, uint8_t *is_member)
{
    return sdk::serve_port_get(Service::port_lag_member_state_get, cmd, log_port, is_member,
                               [](const Port &port) { return std::uint8_t{port.lag_member}; });
}

ky_status_t sdk_validate_swid(unsigned int swid)
{
    return serve(Service::swid_validation, {swid}, [=](Recorder &call) -> ky_status_t {
        if (swid > 255)
            return call.refuse(KY_STATUS_PARAM_EXCEEDS_RANGE, "SWID {} is above 255", swid);
        return device().bridge_swids.contains(static_cast<std::uint8_t>(swid)) ? KY_STATUS_SUCCESS
                                                                               : KY_STATUS_PARAM_ERROR;
    });
}

ky_status_t mstp_mode_get(ky_access_cmd_t cmd, uint8_t swid, uint32_t *mode)
{
    return sdk::serve_get(Service::mstp_mode_get, cmd, swid, mode, [=]() -> std::optional<std::uint32_t> {
        const auto listed = device().mstp_modes.find(swid);
        return listed == device().mstp_modes.end() ? std::uint32_t{KY_MSTP_MODE_RSTP} : listed->second;
    });
}

ky_status_t rstp_port_state_get(ky_access_cmd_t cmd, uint32_t log_port, uint32_t *state)
{
    return sdk::serve_port_get(Service::rstp_port_state_get, cmd, log_port, state,
                               [](const Port &port) { return static_cast<std::uint32_t>(port.rstp_state); });
}

// The SDK declares the state without const.
// NOLINTNEXTLINE(readability-non-const-parameter)
ky_status_t rstp_port_state_set(ky_access_cmd_t cmd, uint32_t log_port, uint32_t *state)
{
    const std::uint32_t wanted = state != nullptr ? *state : 0;
    return serve(Service::rstp_port_state_set, {cmd, log_port, wanted}, [=](Recorder &call) -> ky_status_t {
        if (cmd != KY_ACCESS_CMD_SET)
            return call.refuse_cmd(cmd);
        if (state == nullptr)
            return call.refuse(KY_STATUS_PARAM_NULL, "the state is NULL");
        if (wanted > static_cast<std::uint32_t>(sdk::RstpState::forwarding))
            return call.refuse(KY_STATUS_PARAM_EXCEEDS_RANGE, "state {} is above 2", wanted);
        Port *port = device().ports.find(log_port);
        if (port == nullptr)
            return KY_STATUS_ENTRY_NOT_FOUND;
        port->rstp_state = static_cast<sdk::RstpState>(wanted);
        port->rstp_call = call.number();
        return KY_STATUS_SUCCESS;
    });
}

ky_status_t bridge_port_set(ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t log_port, uint16_t vlan,
                            uint32_t egress_mode, uint32_t is_internal)
{
    return serve(Service::bridge_port_set, {cmd, bridge_id, log_port, vlan, egress_mode, is_internal},
                 [=](Recorder &) -> ky_status_t {
                     if (!device().bridge_port_set)
                         return KY_STATUS_PARAM_ERROR;
                     return device().bridge_port_set(cmd, bridge_id, log_port, vlan, egress_mode, is_internal);
                 });
}
