/// @file
/// The steps of the bridge API that carry a name of their own.
#ifndef KYBRIDGE_BRIDGE_API_H
#define KYBRIDGE_BRIDGE_API_H

#include "db.h"

extern "C" {

/// Tells whether a bridge can be destroyed (api_bridge.cpp).
/// @return 0, or KY_STATUS_RESOURCE_IN_USE: it has virtual ports, references or a VLAN group
KY_BRIDGE_API ky_status_t __bridge_verify_empty_bridge(const bridge_db_bridge_t *bridge);

/// Checks an ADD or DELETE before anything changes (api_port.cpp). Arguments and statuses are those of
/// ky_bridge_port_set; `bridge` is written as soon as the bridge is found.
KY_BRIDGE_API ky_status_t __bridge_port_set_validate(ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t log_port,
                                                     uint16_t vlan, uint32_t egress_mode, uint32_t is_internal,
                                                     bridge_db_bridge_t **bridge);

/// Clears and releases every logical port, then frees every bridge with whatever it still holds
/// (api_clear.cpp). Needs the database of 802.1D mode. @return 0
KY_BRIDGE_API ky_status_t __clear_all_bridges(void);

} // extern "C"

namespace [[gnu::visibility("hidden")]] kybridge {

/// Makes a logical port known: a fresh record, bound to the ingress ACL (api_clear.cpp). Its statuses are
/// those of ky_bridge_clear_undo; a refused binding leaves the record.
ky_status_t announce_log_port(uint32_t log_port, uint8_t swid);

} // namespace kybridge

#endif
