/// complib's raw memory, for systems whose complib has none. Both are weak and called through the
/// dynamic symbols, so that the definitions of the process that loads the module are the ones that run.
#include <cstdlib>

#include "kybridge/ky_sdk.h"

[[gnu::weak, gnu::visibility("default")]] void *cl_malloc(size_t size)
{
    return std::malloc(size);
}

[[gnu::weak, gnu::visibility("default")]] void cl_free(void *memory)
{
    std::free(memory);
}
