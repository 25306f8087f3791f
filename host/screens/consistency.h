/// Whether the module's database agrees with what the stand-in's hardware holds.
#ifndef KYBRIDGE_HOST_CONSISTENCY_H
#define KYBRIDGE_HOST_CONSISTENCY_H

#include <string>
#include <vector>

#include "conform/model/database.h"
#include "sdk/sdk.h"

namespace consistency {

/// Checks that what each virtual port holds stands in the hardware: its rules, whether or not they learn, its
/// port's binding and memberships. Holds whatever the SDK refused.
/// @return what does not hold, one sentence each; empty: all well
std::vector<std::string> check_held(const bridge_db_t *db, const sdk::Device &device);

/// Checks that each virtual port is attached completely, and that rules, bindings, memberships, VLAN groups
/// and memory of the device are exactly those that the database accounts for. Holds as long as the SDK did
/// not refuse an undo, the deletion of an egress rule, a rewrite for the learning mode or a VLAN group's end.
/// @return what does not hold, one sentence each; empty: all well
std::vector<std::string> check_hardware(const bridge_db_t *db, const sdk::Device &device);

} // namespace consistency

#endif
