#include "support/pools.h"

#include <algorithm>
#include <set>

#include <complib/cl_qpool.h>
#include <dlfcn.h>

namespace {

std::set<const cl_qcpool_t *> built_pools;
unsigned pools_until_cut = 0; // 0: none is cut short
std::size_t records_of_cut = 0;

template <typename Function> Function *complib(Function *, const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

std::size_t pools::built()
{
    return built_pools.size();
}

void pools::cut_short(unsigned nth, std::size_t records)
{
    pools_until_cut = nth;
    records_of_cut = records;
}

// The program's own definitions go before complib's, for the module too.

cl_status_t cl_qpool_init(cl_qpool_t *p_pool, size_t min_size, size_t max_size, size_t grow_size, size_t object_size,
                          cl_pfn_qpool_init_t pfn_initializer, cl_pfn_qpool_dtor_t pfn_destructor, const void *context)
{
    if (pools_until_cut != 0 && --pools_until_cut == 0) {
        if (records_of_cut == 0)
            return CL_INSUFFICIENT_MEMORY;
        min_size = max_size = std::min(records_of_cut, min_size);
    }
    const cl_status_t status = complib(cl_qpool_init, "cl_qpool_init")(
        p_pool, min_size, max_size, grow_size, object_size, pfn_initializer, pfn_destructor, context);
    if (status == CL_SUCCESS)
        built_pools.insert(&p_pool->qcpool);
    return status;
}

void cl_qcpool_destroy(cl_qcpool_t *p_pool)
{
    built_pools.erase(p_pool);
    complib(cl_qcpool_destroy, "cl_qcpool_destroy")(p_pool);
}
