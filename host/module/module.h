/// Loads libkybridge.so.1 the way a management process does, with dlopen, and finds what it exports.
#ifndef KYBRIDGE_HOST_MODULE_H
#define KYBRIDGE_HOST_MODULE_H

#include <stdexcept>
#include <string>

#include "kybridge/ky_bridge.h"
#include "record/calls.h"

namespace host {

/// The module cannot be used; the text says which file and why.
class ModuleError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The loaded module. It stays loaded to the end of the process: the SDK keeps its callbacks.
struct Module {
    std::string file; ///< the file that was loaded

    // NOLINTNEXTLINE(bugprone-macro-parentheses): the argument is a name, not an expression
#define KYBRIDGE_MEMBER(answer, function, ...) decltype(&::function) function = nullptr;
    KYBRIDGE_FUNCTIONS(KYBRIDGE_MEMBER)
#undef KYBRIDGE_MEMBER
    bridge_db_t **bridge_db = nullptr;                             ///< read only
    ky_swid_validation_func_t *swid_validation_func_ptr = nullptr; ///< for the host to fill

    bool is_started() const
    {
        return *bridge_db != nullptr;
    }
};

/// Loads the module and connects it with the stand-in SDK: the SWID validation goes in, and the SDK's
/// bridge_port_set comes back into the module.
/// @param file a path, or a bare name that is looked for where the program's own libraries are
/// @throws ModuleError
Module load_module(const std::string &file);

} // namespace host

#endif
