/// @file
/// Counted membership of ports in VLANs, and the refresh of their RSTP state.
#ifndef KYBRIDGE_BRIDGE_VLAN_H
#define KYBRIDGE_BRIDGE_VLAN_H

#include "db.h"

extern "C" {

/// Makes a virtual port's logical port a member of its VLAN and, where no other virtual port of the port
/// keeps it there as in its own, of the bridge's internal VLAN; counts a use of both, which the virtual port holds.
/// @return 0 or the VLAN module's status
KY_BRIDGE_API ky_status_t __bridge_vlan_enable(const bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport,
                                               bridge_db_log_port_t *log_port);
/// Drops a virtual port's uses of both VLANs and takes its port out of each whose last use it was; nothing to do
/// where it holds none. @return 0 or the VLAN module's status; the uses then stay
KY_BRIDGE_API ky_status_t __bridge_vlan_disable(const bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport,
                                                bridge_db_log_port_t *log_port);
/// Reads a port's RSTP state and writes it back, where its SWID runs RSTP. @return 0 or the spanning tree's status
KY_BRIDGE_API ky_status_t __bridge_update_port_rstp_state(const bridge_db_log_port_t *log_port);
/// Refreshes every port that has virtual ports, ascending, up to the first failure.
/// @return 0 or the spanning tree's status
KY_BRIDGE_API ky_status_t __bridge_update_rstp_state(void);

} // extern "C"

#endif
