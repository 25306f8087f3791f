/// complib's pools as the module uses them, watched: how many are built, and a pool that cannot be built.
/// A test that calls these stands between the module and complib; the others never notice.
#ifndef KYBRIDGE_TESTS_SUPPORT_POOLS_H
#define KYBRIDGE_TESTS_SUPPORT_POOLS_H

#include <cstddef>

namespace pools {

/// Pools that are built and not destroyed yet.
std::size_t built();

/// Lets the `nth` next pool, 1 being the very next, end with `records` records instead of all; with 0 it
/// is not built, as when memory runs out.
void cut_short(unsigned nth, std::size_t records = 0);

} // namespace pools

#endif
