/// The software switch: forwards one Ethernet frame at a time by what the stand-in SDK was programmed with.
///
/// It reads sdk::device() and nothing else, so a frame that comes out at the right port with the right tag
/// proves that the rules, bindings, memberships and spanning-tree states are right.
///
///     sim::Switch software_switch;
///     const sim::Header header{.destination = *sim::parse_mac("02:00:00:00:00:0b"),
///                              .source = *sim::parse_mac("02:00:00:00:00:0a"),
///                              .tag = sim::Tag{.vid = 100},
///                              .ether_type = 0x0800};
///     const sim::Outcome outcome = software_switch.forward(0x10001, sim::build(header, payload));
///     for (const sim::Transmission &sent : outcome.transmissions)
///         send(sent.port, sent.frame);
///     fmt::print("{}", sim::trace(outcome, names)); // sim/trace.h
///
/// A frame's way, in this order; the first thing that goes wrong drops it:
///  1. size, port and link; the port's RSTP state: discarding drops
///  2. VLAN: from the tag, or the port's PVID for an untagged or priority-tagged frame
///  3. the port must be a member of that VLAN
///  4. the first matching rule of the port's ingress ACL sets the VLAN and may forbid learning
///  5. the source address is learned in that VLAN; an RSTP state of learning ends here
///  6. a reserved group address goes nowhere, a known unicast address to its port, everything else to all other
///     members of the VLAN; a port takes part when its link is up and its RSTP state is forwarding
///  7. at each of them, the first matching rule of the port's egress ACL sets the VLAN
///  8. the port's membership in that VLAN decides whether the frame leaves tagged or untagged, and then padded
#ifndef KYBRIDGE_SIM_SWITCH_H
#define KYBRIDGE_SIM_SWITCH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "sdk/sdk.h"
#include "sim/fdb.h"
#include "sim/frame.h"

namespace sim {

/// Why a frame is not forwarded, or does not leave at one of the ports that it was meant for.
enum class Drop : std::uint8_t {
    none,
    runt,         ///< shorter than an Ethernet header
    cut_tag,      ///< ends within its tag
    oversized,    ///< too long; on egress: its tag makes it so
    unknown_port, ///< the device has no such port
    link_down,
    discarding, ///< RSTP state
    learning,   ///< RSTP state: learns but does not forward
    no_vlan,    ///< no tag that names a VLAN, and the port has no PVID
    not_member, ///< the port is no member of the frame's VLAN
    reserved,   ///< the destination is a group address that no bridge relays
    filtered,   ///< the destination is where the frame came from
    no_receiver ///< flooded into a VLAN without another member
};
inline constexpr std::size_t drop_count = static_cast<std::size_t>(Drop::no_receiver) + 1;

enum class VlanSource : std::uint8_t { tag, pvid_untagged, pvid_priority_tag };

struct VlanStep {
    std::uint16_t vlan = 0;
    VlanSource source{};
};

/// What an ACL did to a frame.
struct RuleStep {
    enum class Result : std::uint8_t { unbound, miss, hit };

    Result result{};
    std::uint16_t offset = 0;      ///< of the rule that was hit
    std::uint16_t vlan_before = 0; ///< compared with the rules
    std::uint16_t vlan = 0;        ///< that the frame goes on with
    bool dont_learn = false;
};

struct LookupStep {
    enum class Result : std::uint8_t { known, unknown, multicast, reserved };

    Result result{};
    std::uint32_t port = 0; ///< of a known address
};

/// A port that the frame was meant for.
struct Exit {
    std::uint32_t port = 0;
    Drop drop = Drop::none;
    std::optional<RuleStep> rule{}; ///< egress ACL; none: dropped before it
    std::optional<Tag> tag{};       ///< that the frame leaves with
    std::size_t size = 0;           ///< with which it leaves, in bytes
};

struct Transmission {
    std::uint32_t port = 0; ///< logical port
    Bytes frame;
};

/// All that happened to one frame. A step that it did not reach is empty.
struct Outcome {
    std::uint32_t port = 0; ///< logical port that it came in on
    std::size_t size = 0;   ///< in bytes
    Drop drop = Drop::none; ///< why it was meant for no port at all
    std::optional<Header> header{};
    std::optional<sdk::RstpState> state{};
    std::optional<VlanStep> vlan{};
    std::optional<RuleStep> rule{}; ///< ingress ACL
    std::optional<Learning> learn{};
    std::optional<LookupStep> lookup{};
    std::vector<Exit> exits{};                 ///< by port
    std::vector<Transmission> transmissions{}; ///< what leaves; made by Switch::forward only
};

struct Traffic {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
};

struct Counters {
    Traffic in; ///< all that arrived, dropped or not
    Traffic out;
    std::array<std::uint64_t, drop_count> dropped_in{};  ///< frames that arrived here, by Drop
    std::array<std::uint64_t, drop_count> dropped_out{}; ///< frames that were to leave here, by Drop
};

/// Only one at a time: it takes the device's hook for ports that leave a VLAN. Make it after device().reset().
class Switch {
public:
    static constexpr std::size_t fdb_limit_default = 16384;

    explicit Switch(std::size_t fdb_limit = fdb_limit_default);
    ~Switch();
    Switch(const Switch &) = delete;
    Switch &operator=(const Switch &) = delete;

    /// What becomes, up to the ingress rule, of frames that come in with a tag of this VLAN. Nothing is counted or
    /// learned.
    static Outcome arrival(std::uint32_t port, std::uint16_t vlan);

    /// Takes a frame in on a logical port, says what becomes of it, and makes the frames that leave.
    Outcome forward(std::uint32_t port, BytesView frame);

    /// The same without making the frames that leave, and without allocating: for whoever sends them from the bytes
    /// that came in.
    /// @param wire_size bytes of its longest piece when the frame is one that its sender left to be segmented, else
    ///                  of the frame; not more than a wire carries may come in and leave
    /// @return valid until the next frame
    const Outcome &decide(std::uint32_t port, BytesView frame, std::size_t wire_size);

    /// Sets a port's link; one that goes down loses its FDB entries. False: there is no such port.
    bool set_link(std::uint32_t port, bool up);

    Fdb &fdb() { return fdb_; }
    const Fdb &fdb() const { return fdb_; }
    const std::map<std::uint32_t, Counters> &counters() const { return counters_; } ///< by logical port
    void clear_counters() { counters_.clear(); }

private:
    Drop receive(BytesView frame, std::size_t wire_size);
    Drop relay();
    Learning learn();
    void send(std::uint32_t port);
    Drop leave(Exit &exit) const;

    Fdb fdb_;
    Outcome outcome_;             ///< of the frame that is being decided, or of the last
    std::size_t unsegmented_ = 0; ///< bytes that this frame is longer than its longest piece on a wire
    std::map<std::uint32_t, Counters> counters_;
};

} // namespace sim

#endif
