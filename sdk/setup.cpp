// A device that is ready for the bridge module, for programs that know nothing of the stand-in but its services.
#include <dlfcn.h>

#include "sdk/sdk.h"

int sdk_setup()
{
    sdk::Device &device = sdk::device();
    for (std::uint32_t log_port = 0x10001; log_port <= 0x10004; ++log_port) {
        device.ports.ports[log_port];
    }
    device.bridge_port_set = [](ky_access_cmd_t cmd, std::uint16_t bridge_id, std::uint32_t log_port,
                                std::uint16_t vlan, std::uint32_t egress_mode, std::uint32_t is_internal) {
        using PortSet =
            ky_status_t(ky_access_cmd_t, std::uint16_t, std::uint32_t, std::uint16_t, std::uint32_t, std::uint32_t);
        auto *const port_set = reinterpret_cast<PortSet *>(dlsym(RTLD_DEFAULT, "ky_bridge_port_set"));
        return port_set != nullptr ? port_set(cmd, bridge_id, log_port, vlan, egress_mode, is_internal)
                                   : ky_status_t{KY_STATUS_MODULE_UNINITIALIZED};
    };
    return 0;
}
