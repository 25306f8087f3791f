// While a port is cleared, the SDK is called back: a good moment for another thread to come in.
#include <cstdio>
#include <string>
#include <thread>

#include "kybridge/ky_bridge.h"
#include "sdk/sdk.h"

namespace {

constexpr std::uint32_t port = 0x10001;
bool lets_another_in = false;

ky_status_t pass_on(ky_access_cmd_t cmd, uint16_t bridge, uint32_t log_port, uint16_t vlan, uint32_t egress_mode,
                    uint32_t is_internal)
{
    if (lets_another_in)
        std::thread([] { ky_bridge_log_port_member_state(0, port); }).join();
    return ky_bridge_port_set(cmd, bridge, log_port, vlan, egress_mode, is_internal);
}

} // namespace

int main()
{
    sdk::Device &device = sdk::device();
    std::string errors;
    device.log = [&](const sdk::LogLine &line) { errors += line.severity == KY_LOG_ERROR ? line.text : ""; };
    device.bridge_port_set = pass_on;
    device.ports.ports[port] = {};
    swid_validation_func_ptr = sdk_validate_swid;

    ky_bridge_init_params_t params{};
    params.sdk_mode = KY_BRIDGE_SDK_MODE_802_1D;
    params.sdk_mode_params.mode_1D = {64, 512, KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS};
    ky_port_event_t event{};
    event.log_port = port;
    std::uint16_t bridge = 0;
    ky_status_t refused = ky_bridge_init(&params);
    refused |= device.adviser.deliver(KY_ADVISER_EVENT_PORT_ADD_INTO_SWID, event);
    refused |= ky_bridge_set(KY_ACCESS_CMD_CREATE, &bridge, 0);
    for (const bool two : {false, true, false}) { // the module calls itself through the SDK, which is nothing to tell
        lets_another_in = two;
        refused |= ky_bridge_port_set(KY_ACCESS_CMD_ADD, bridge, port, 100, KY_EGRESS_MODE_TAGGED, 0);
        refused |= ky_bridge_clear_port(port, 0);
    }
    refused |= ky_bridge_deinit();

    const std::string expected =
        "ky_bridge_log_port_member_state was called while another thread is inside ky_bridge_clear_port: "
        "the module takes one call at a time.\n";
    std::printf("%s", errors.c_str());
    return refused == KY_STATUS_SUCCESS && errors.starts_with(expected) && errors.find(expected, 1) == std::string::npos
               ? 0
               : 1;
}
