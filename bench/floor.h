/// The floor under the module's operations: what has to be done, and nothing that has not. The same service calls with
/// the same records, the same complib map and pool operations on the module's own database, the same function traces at
/// the same places, the same tests of arguments and of the database, and a look at every answer. What is refused ends
/// the run: there is no undo and no message. What an operation costs above its floor is what the module adds.
///
/// Arguments are those of the module's functions in kybridge/ky_bridge.h.
#ifndef KYBRIDGE_BENCH_FLOOR_H
#define KYBRIDGE_BENCH_FLOOR_H

#include <cstdint>

#include "kybridge/ky_bridge.h"

namespace bench::floor {

extern std::uint32_t log_verbosity; ///< as ky_bridge_log_verbosity_level_set sets the module's

void create_bridge(std::uint16_t *bridge_id, std::uint32_t is_internal);
void destroy_bridge(const std::uint16_t *bridge_id, std::uint32_t is_internal);

void add(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan, std::uint32_t egress_mode,
         std::uint32_t is_internal);
void remove(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan, std::uint32_t egress_mode,
            std::uint32_t is_internal);
/// The floor's end of bridge_port_set, for clear_port.
ky_status_t bridge_port_set(ky_access_cmd_t cmd, std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan,
                            std::uint32_t egress_mode, std::uint32_t is_internal);

void announce(std::uint32_t log_port, std::uint8_t swid);
void clear_and_release(std::uint32_t log_port);

void set_learning_mode(std::uint16_t bridge_id, std::uint32_t learning_mode, std::uint32_t is_internal);

void get_learning_mode(std::uint16_t bridge_id, std::uint32_t *learning_mode, std::uint32_t is_internal);
void list_ports(std::uint16_t bridge_id, ky_bridge_port_t *list, std::uint32_t *count, std::uint32_t is_internal);
void int_vlan_of_bridge(std::uint16_t bridge_id, std::uint16_t *vid, std::uint32_t is_internal);
void list_int_vlans(std::uint32_t log_port, std::uint16_t *vids, std::uint32_t *count);
void bridge_of_int_vlan(std::uint16_t int_vlan, std::uint16_t *bridge_id);
ky_status_t is_member(std::uint32_t log_port);
void vlan_group_of_bridge(std::uint16_t bridge_id, std::uint16_t *vlan_group);
void acls_of_port(std::uint32_t log_port, std::uint32_t *ingress_acl, std::uint32_t *egress_acl);

} // namespace bench::floor

#endif
