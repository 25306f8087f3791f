/// Finds the module in the process and puts the recorder between it and the services.
#ifndef KYBRIDGE_RECORD_ATTACH_H
#define KYBRIDGE_RECORD_ATTACH_H

#include <cstdint>

#include "kybridge/ky_bridge.h"

namespace record {

/// A service that the module calls through a slot of its global offset table.
struct Slot {
    const char *name; ///< of the service
    void *recorder;   ///< what the slot points to while the process is recorded
    void *real;       ///< what it pointed to before; nullptr: the module has no such slot
    void **at;        ///< the slot
};

/// The attached module. Its addresses are 0 before.
struct Module {
    const char *file;                           ///< as the dynamic linker names it
    std::uintptr_t begin, end;                  ///< where it lies in memory
    ky_swid_validation_func_t *swid_validation; ///< its swid_validation_func_ptr
    const rm_resource_t *resources;             ///< the process's rm_resource_global
};

using Dlsym = void *(*)(void *handle, const char *name);

/// The dynamic linker's own dlsym, which the recorder stands in front of.
Dlsym real_dlsym();

/// Finds a function of the module, by asking for what comes behind the recorder or, when the module is not visible to
/// the whole process, by its soname. @return nullptr: the module is not loaded
void *find_in_module(const char *name);

/// Puts the recorder into every slot of the module that contains `function`, an exported function, unless it is there.
/// What it cannot change stays as it is, and is not recorded.
/// @param slots in: names and recorders; out: the rest  @return the module
Module attach(void *function, Slot *slots, unsigned slot_count);

} // namespace record

#endif
