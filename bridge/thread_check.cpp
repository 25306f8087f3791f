// For a build with KYBRIDGE_THREAD_CHECK alone; in every other there is nothing here.
#include "log.h"

#ifdef KYBRIDGE_THREAD_CHECK

namespace kybridge {

namespace {

/// The function by which a thread came in, while one is inside.
const char *inside = nullptr;

thread_local unsigned depth = 0; ///< functions of the module that this thread is in
thread_local bool is_alone;      ///< whether nobody was inside when it came in

} // namespace

ThreadCheck::ThreadCheck(const char *function)
{
    if (depth++ > 0)
        return;
    const char *other = nullptr;
    is_alone = __atomic_compare_exchange_n(&inside, &other, function, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    if (!is_alone)
        LOG_ERROR("%s was called while another thread is inside %s: the module takes one call at a time.\n", function,
                  other);
}

ThreadCheck::~ThreadCheck()
{
    if (--depth == 0 && is_alone)
        __atomic_store_n(&inside, nullptr, __ATOMIC_SEQ_CST);
}

} // namespace kybridge

#endif
