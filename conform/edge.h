/// Records where no mistake stays hidden: each ends where a page ends behind which nothing may be touched, and
/// stands behind bytes that nobody may write.
#ifndef KYBRIDGE_CONFORM_EDGE_H
#define KYBRIDGE_CONFORM_EDGE_H

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace conform {

/// Copies bytes to the edge. What was there before is lost.
/// @param size 1 to 8192 @param alignment of the copy; what it takes behind the record must stay as it is, too
void *to_edge(const void *bytes, std::size_t size, std::size_t alignment);
/// Fails the check if bytes around the last copy were written.
void expect_edge_intact();

/// Makes a touch behind the edge a finding instead of a mere crash. Once in a process.
void watch_edge();

/// Calls a service with records at the edge, and takes back what it wrote into them.
template <typename Record, typename Service>
auto with_record_at_edge(Record *records, std::size_t count, Service service)
{
    auto *const copy = static_cast<Record *>(to_edge(records, count * sizeof(Record), alignof(Record)));
    const auto answer = service(copy);
    expect_edge_intact();
    std::memcpy(records, copy, count * sizeof(Record));
    return answer;
}

} // namespace conform

#endif
