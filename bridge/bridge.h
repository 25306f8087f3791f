/// @file
/// The module's main unit: start, stop, mode, and the port events.
#ifndef KYBRIDGE_BRIDGE_BRIDGE_H
#define KYBRIDGE_BRIDGE_BRIDGE_H

#include "kybridge/ky_bridge.h"

extern "C" {

/// Callback for the adviser's port events: a port that enters a switch partition which the module serves
/// becomes known and is bound to the ingress ACL; one that leaves is only reported if it is still known.
/// @param event_type ky_adviser_event @param event the event's record
/// @return 0, KY_STATUS_CMD_ERROR (another event), KY_STATUS_PARAM_NULL (no record), or as
///         ky_bridge_clear_undo for a port that enters
KY_BRIDGE_API ky_status_t __bridge_port_add_swid_callbacks(uint32_t event_type, const ky_port_event_t *event);

} // extern "C"

#endif
