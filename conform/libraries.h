/// The libraries under test, opened into the process of a check.
#ifndef KYBRIDGE_CONFORM_LIBRARIES_H
#define KYBRIDGE_CONFORM_LIBRARIES_H

#include "conform/check.h"

namespace conform {

/// Opens the SDK's libraries in their order, so that whatever is opened later finds their services, and sets the SDK
/// up. @throws Finding when that cannot be done
void open_sdk(const Settings &settings);

/// Opens the module behind the SDK. @throws Finding when it does not load
void open_module(const Settings &settings);

/// Finds out whether there is a module at all. One that lacks services is for the checks to tell.
/// @throws Finding when there is none
void expect_module(const Settings &settings);

} // namespace conform

#endif
