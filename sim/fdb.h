/// The filtering database of the switch: at which port a station of a VLAN was last heard.
///
/// A station that is not heard for the ageing time is forgotten. When the database is full, a newcomer takes the
/// place of the longest unheard station of the port that holds most, so that no port starves another.
#ifndef KYBRIDGE_SIM_FDB_H
#define KYBRIDGE_SIM_FDB_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "sim/frame.h"

namespace sim {

/// What came of a frame's source address.
struct Learning {
    enum class Result : std::uint8_t {
        added,
        known,            ///< already at this port
        moved,            ///< was at another port
        replaced,         ///< added to a full database, in the place of a station of another or the same port
        forbidden,        ///< not learned, by the ingress rule
        multicast_source, ///< not learned, no station has such an address
        zero_source,      ///< likewise
    };

    Result result{};
    std::uint32_t previous_port = 0; ///< of a station that moved, or that was replaced
};

class Fdb {
public:
    static constexpr std::chrono::seconds ageing_default{300}; ///< of IEEE 802.1D
    static constexpr std::chrono::seconds ageing_min{10};
    static constexpr std::chrono::seconds ageing_max{1'000'000};

    struct Entry {
        std::uint16_t vlan = 0;
        Mac mac;
        std::uint32_t port = 0;     ///< logical port
        std::chrono::seconds age{}; ///< since the station was last heard
        bool operator==(const Entry &) const = default;
    };

    /// @param limit most stations that it holds, at least 1
    explicit Fdb(std::size_t limit);

    Learning learn(std::uint16_t vlan, const Mac &mac, std::uint32_t port);
    std::optional<std::uint32_t> find(std::uint16_t vlan, const Mac &mac) const; ///< the station's port

    /// Lets time pass; it stands still otherwise.
    void advance(std::chrono::nanoseconds time);
    /// @param ageing ageing_min to ageing_max
    void set_ageing(std::chrono::seconds ageing);

    void flush();
    void flush(std::uint32_t port);
    void flush(std::uint32_t port, std::uint16_t vlan);

    std::vector<Entry> entries() const; ///< by VLAN, then by address
    std::size_t size() const { return size_; }
    std::size_t limit() const { return limit_; }
    std::chrono::seconds ageing() const { return ageing_; }
    std::uint64_t evictions() const { return evictions_; } ///< stations whose place a newcomer took

private:
    /// Place in stations_ or ports_.
    using Index = std::uint32_t;
    static constexpr Index none = UINT32_MAX;

    struct Station {
        std::uint64_t key;              ///< VLAN and address
        std::chrono::nanoseconds heard; ///< by now_
        Index port;
        Index next;         ///< of the same bucket, or of the free ones
        Index older, newer; ///< neighbours among the port's stations, by when they were last heard
    };
    struct Port {
        std::uint32_t log_port;
        std::uint32_t stations = 0;
        Index oldest = none, newest = none; ///< of its stations
        Index previous = none, next = none; ///< neighbours among the ports that hold as many
    };

    Index &bucket_of(std::uint64_t key);
    Index find(std::uint64_t key) const;
    Index port_of(std::uint32_t log_port);
    Index take_place();
    void link_as_newest(Index index);
    void unlink(Index index);
    void join(Index station, Index port);
    void leave(Index station);
    void count(Index index, std::uint32_t stations);
    void remove(Index station);
    void forget_unheard();

    std::size_t limit_;
    std::size_t size_ = 0;
    std::uint64_t evictions_ = 0;
    std::chrono::nanoseconds now_{};
    std::chrono::seconds ageing_ = ageing_default;
    std::vector<Station> stations_; ///< grows up to the limit
    Index free_ = none;             ///< first of the places that are free again
    std::vector<Index> buckets_;    ///< first station of each; a power of two of them
    std::vector<Port> ports_;       ///< all that ever held a station
    std::unordered_map<std::uint32_t, Index> ports_by_number_;
    std::vector<Index> holders_; ///< first of the ports that hold that many stations
    std::uint32_t most_ = 0;     ///< highest number of stations that a port holds
};

} // namespace sim

#endif
