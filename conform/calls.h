/// The SDK's services, called as the module calls them: each call is announced in words, hands its record over at the
/// edge of a page, and answers the service's status. A service that the process does not supply ends the check.
#ifndef KYBRIDGE_CONFORM_CALLS_H
#define KYBRIDGE_CONFORM_CALLS_H

#include <cstdint>
#include <string>
#include <vector>

#include "conform/model/symbols.h"
#include "kybridge/ky_sdk.h"

namespace conform {

/// Every symbol that the module needs of a process.
std::vector<std::string> service_names();

/// What a call answered, and the identifier that it wrote or was given.
struct Answered {
    ky_status_t status;
    std::uint32_t id;
};

Answered create_region(std::uint32_t size);
ky_status_t destroy_region(std::uint32_t region, std::uint32_t size);
Answered create_acl(std::uint32_t region, std::uint32_t direction);
ky_status_t destroy_acl(std::uint32_t acl, std::uint32_t region, std::uint32_t direction);

/// An ingress rule, from a port and VLAN to another VLAN.
ky_status_t write_rule(std::uint32_t region, std::uint16_t offset, std::uint32_t port, std::uint16_t vlan,
                       std::uint16_t new_vlan, bool dont_learn = true);
/// An egress rule, for every port.
ky_status_t write_egress_rule(std::uint32_t region, std::uint16_t offset, std::uint16_t vlan, std::uint16_t new_vlan);
ky_status_t delete_rule(std::uint32_t region, std::uint16_t offset);

ky_status_t bind_port(std::uint32_t acl, std::uint32_t direction, std::uint32_t port);
ky_status_t unbind_port(std::uint32_t acl, std::uint32_t direction, std::uint32_t port);
Answered read_binding(std::uint32_t direction, std::uint32_t port);

Answered create_group();
/// @param cmd KY_ACCESS_CMD_ADD, _DELETE or _DESTROY
ky_status_t set_group(ky_access_cmd_t cmd, std::uint16_t group, std::uint16_t vlan);

/// @param cmd KY_ACCESS_CMD_ADD or _DELETE @param entries one or two
ky_status_t set_vlans(ky_access_cmd_t cmd, std::uint32_t port, std::vector<ky_vlan_entry_t> entries);

bool is_router_port(std::uint32_t port);
Answered read_swid(std::uint32_t port);
Answered read_lag_member(std::uint32_t port);
Answered read_mstp_mode(std::uint8_t swid);
Answered read_rstp_state(std::uint32_t port);
ky_status_t write_rstp_state(std::uint32_t port, std::uint32_t state);

ky_status_t register_event(std::uint32_t event, ky_adviser_callback_t callback);
/// @param[out] memory what was obtained
ky_status_t get_memory(void *&memory, std::uint32_t size);
ky_status_t put_memory(void *memory);

} // namespace conform

#endif
