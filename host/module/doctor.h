/// Whether a library file is the bridge module, or an SDK's library with all that the module calls, and whether a
/// process like this one can load it.
#ifndef KYBRIDGE_HOST_DOCTOR_H
#define KYBRIDGE_HOST_DOCTOR_H

#include <string>

namespace host {

/// Examines a file that should be the module and says on standard output what is right with it and what is wrong: its
/// kind, soname, exports and imports, read without loading it; and only when nothing is wrong so far, whether it loads.
/// All of it happens in a child process, so that nothing in the file can harm this one.
/// @return whether all is well
bool examine_module(const std::string &file);

/// The same for a file that should be the library of an SDK: whether it supplies every service that the module calls.
bool examine_sdk(const std::string &file);

} // namespace host

#endif
