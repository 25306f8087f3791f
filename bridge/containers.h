/// Typed layer over complib's quick pool and quick map: the only place that turns their items into
/// records and back.
///
/// Zeroed memory is a valid, unbuilt container: an unbuilt pool hands nothing out and an unbuilt map is
/// empty. So a pool that could not be built is an exhausted one, and in 802.1Q mode, where nothing is
/// built, every lookup finds nothing.
#ifndef KYBRIDGE_BRIDGE_CONTAINERS_H
#define KYBRIDGE_BRIDGE_CONTAINERS_H

#include <bit>
#include <cstddef>
#include <cstdint>

#include <complib/cl_qmap.h>
#include <complib/cl_qpool.h>

namespace kybridge {

/// A fixed number of records that begin with their pool item. The record initialised last is handed
/// out first, and so is the one put back last.
template <typename Record> struct Pool {
    cl_qpool_t pool;

    bool is_built() const { return pool.qcpool.state == CL_INITIALIZED; }

    /// Whether it succeeded shows in is_built().
    void build(uint32_t capacity, cl_pfn_qpool_init_t initialiser, void *context = nullptr)
    {
        cl_qpool_init(&pool, capacity, capacity, 0, sizeof(Record), initialiser, nullptr, context);
    }

    void destroy()
    {
        if (is_built())
            cl_qcpool_destroy(&pool.qcpool);
    }

    /// The record at the front of the free list, or nullptr.
    Record *take() { return is_built() ? reinterpret_cast<Record *>(cl_qcpool_get(&pool.qcpool)) : nullptr; }

    /// To the front of the free list.
    void put(Record *record)
    {
        static_assert(offsetof(Record, pool_item) == 0, "the pool item comes first");
        cl_qpool_put(&pool, &record->pool_item);
    }
};

/// Records in ascending order of an unsigned key, linked through their member `Link`.
template <typename Record, cl_map_item_t Record::*Link> struct Map {
    cl_qmap_t map;

    void init() { cl_qmap_init(&map); }
    bool is_built() const { return map.state == CL_INITIALIZED; }
    bool is_empty() const { return map.count == 0; }
    std::size_t count() const { return map.count; }

    /// The record under a key, or nullptr.
    Record *find(uint64_t key) const { return is_built() ? record(cl_qmap_get(&map, key)) : nullptr; }
    /// The record with the lowest key, or nullptr.
    Record *first() const { return is_built() ? record(cl_qmap_head(&map)) : nullptr; }
    /// The record that follows one in the map, or nullptr.
    Record *next(const Record *current) const { return record(cl_qmap_next(&(current->*Link))); }
    /// The record with the next greater key, which itself need not be in the map, or nullptr.
    Record *successor(uint64_t key) const { return is_built() ? record(cl_qmap_get_next(&map, key)) : nullptr; }

    /// A key that is present keeps its record.
    void insert(uint64_t key, Record *record) { cl_qmap_insert(&map, key, &(record->*Link)); }
    /// The record taken out, or nullptr.
    Record *remove(uint64_t key) { return is_built() ? record(cl_qmap_remove(&map, key)) : nullptr; }

private:
    Record *record(cl_map_item_t *item) const
    {
        if (item == cl_qmap_end(&map))
            return nullptr;
        // A pointer to a data member is its offset (Itanium C++ ABI, 2.3).
        return reinterpret_cast<Record *>(reinterpret_cast<std::byte *>(item) - std::bit_cast<std::ptrdiff_t>(Link));
    }
};

} // namespace kybridge

#endif
