/// The floor under the module's operations: straight-line routines that make the same service calls with the
/// same records, and the same complib map and pool operations, on the module's own database - and nothing
/// else. No argument is checked, no answer is looked at but to decide what must be called next, nothing is
/// logged or traced. What an operation costs above its floor is what the module adds.
#ifndef KYBRIDGE_BENCH_FLOOR_H
#define KYBRIDGE_BENCH_FLOOR_H

#include <cstdint>

#include "kybridge/ky_bridge.h"

namespace bench::floor {

std::uint16_t create_bridge();
void destroy_bridge(std::uint16_t bridge_id);

void add(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan, std::uint32_t egress_mode);
void remove(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan);
/// The floor's end of bridge_port_set, for clear_port.
ky_status_t bridge_port_set(ky_access_cmd_t cmd, std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan,
                            std::uint32_t egress_mode, std::uint32_t is_internal);

void announce(std::uint32_t log_port, std::uint8_t swid);
void clear_and_release(std::uint32_t log_port);

void set_learning_mode(std::uint16_t bridge_id, std::uint32_t learning_mode);

std::uint32_t get_learning_mode(std::uint16_t bridge_id);
std::uint32_t list_ports(std::uint16_t bridge_id, ky_bridge_port_t *list, std::uint32_t capacity);
std::uint16_t int_vlan_of_bridge(std::uint16_t bridge_id);
std::uint32_t list_int_vlans(std::uint16_t *vids, std::uint32_t capacity);
std::uint32_t list_int_vlans_of_port(std::uint32_t log_port, std::uint16_t *vids, std::uint32_t capacity);
std::uint16_t bridge_of_int_vlan(std::uint16_t int_vlan);
bool is_member(std::uint32_t log_port);
std::uint16_t vlan_group_of_bridge(std::uint16_t bridge_id);
void acls_of_port(std::uint32_t log_port, std::uint32_t *ingress_acl, std::uint32_t *egress_acl);

} // namespace bench::floor

#endif
