/// The filtering database of the switch: at which port a station of a VLAN was last heard.
#ifndef KYBRIDGE_SIM_FDB_H
#define KYBRIDGE_SIM_FDB_H

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
        full,             ///< not learned, the database holds no more
        forbidden,        ///< not learned, by the ingress rule
        multicast_source, ///< not learned, no station has such an address
    };

    Result result{};
    std::uint32_t previous_port = 0; ///< of a station that moved
};

class Fdb {
public:
    struct Entry {
        std::uint16_t vlan = 0;
        Mac mac;
        std::uint32_t port = 0; ///< logical port
        bool operator==(const Entry &) const = default;
    };

    /// @param limit most entries that it holds
    explicit Fdb(std::size_t limit) : limit_(limit) {}

    Learning learn(std::uint16_t vlan, const Mac &mac, std::uint32_t port);
    std::optional<std::uint32_t> find(std::uint16_t vlan, const Mac &mac) const; ///< the station's port

    void flush();
    void flush(std::uint32_t port);
    void flush(std::uint32_t port, std::uint16_t vlan);

    std::vector<Entry> entries() const; ///< by VLAN, then by address
    std::size_t size() const { return ports_.size(); }
    std::size_t limit() const { return limit_; }
    std::uint64_t refused() const { return refused_; } ///< frames whose source found the database full

private:
    std::unordered_map<std::uint64_t, std::uint32_t> ports_; ///< by VLAN and address
    std::size_t limit_;
    std::uint64_t refused_ = 0;
};

} // namespace sim

#endif
