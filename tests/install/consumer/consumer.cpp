// Announces a port to the module, attaches it to a bridge, and looks at what the stand-in's hardware got.
#include <cstdio>

#include <kybridge/ky_bridge.h>
#include <sdk/sdk.h>

namespace {

bool attach_a_port()
{
    sdk::Device &device = sdk::device();
    device.reset();
    device.bridge_port_set = ky_bridge_port_set;
    device.ports.ports[0x10001] = {};
    swid_validation_func_ptr = sdk_validate_swid;

    ky_bridge_init_params_t params{};
    params.sdk_mode = KY_BRIDGE_SDK_MODE_802_1D;
    params.sdk_mode_params.mode_1D = {64, 512, KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS};
    ky_port_event_t event{};
    event.log_port = 0x10001;
    std::uint16_t bridge = 0;
    return ky_bridge_init(&params) == 0 && device.adviser.deliver(KY_ADVISER_EVENT_PORT_ADD_INTO_SWID, event) == 0 &&
           ky_bridge_set(KY_ACCESS_CMD_CREATE, &bridge, 0) == 0 &&
           ky_bridge_port_set(KY_ACCESS_CMD_ADD, bridge, 0x10001, 100, KY_EGRESS_MODE_TAGGED, 0) == 0;
}

} // namespace

int main()
{
    const bool attached = attach_a_port() && sdk::device().vlans.find(0x10001, 100) != nullptr;
    const bool stopped = ky_bridge_deinit() == 0 && sdk::device().memory.bytes() == 0;
    std::fputs(sdk::device().snapshot().c_str(), stdout);
    return attached && stopped && sdk::device().violations.empty() ? 0 : 1;
}
