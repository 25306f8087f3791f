/// Whether a library file is the bridge module, and whether a process like this one can load it.
#ifndef KYBRIDGE_HOST_DOCTOR_H
#define KYBRIDGE_HOST_DOCTOR_H

#include <string>

namespace host {

/// Examines a library file and says on standard output what is right with it and what is wrong: its kind, soname,
/// exports and imports, read without loading it; and only when nothing is wrong so far, whether it loads.
/// @return whether all is well
bool examine(const std::string &file);

} // namespace host

#endif
