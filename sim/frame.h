/// Ethernet frames as they are on the wire, without their frame check sequence.
///
/// Of a frame only the outer IEEE 802.1Q tag matters to the switch; everything behind it, inner tags
/// too, is payload.
#ifndef KYBRIDGE_SIM_FRAME_H
#define KYBRIDGE_SIM_FRAME_H

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

using Bytes = std::vector<std::uint8_t>;
using BytesView = std::span<const std::uint8_t>;

inline constexpr std::size_t frame_size_min = 14;   ///< an Ethernet header, in bytes
inline constexpr std::size_t frame_size_wire = 60;  ///< shortest on a wire, in bytes; others are padded to it
inline constexpr std::size_t frame_size_max = 9216; ///< in bytes, with the tag
inline constexpr std::size_t addresses_size = 12;   ///< destination and source, in front of the tag or the type
inline constexpr std::size_t tag_size = 4;          ///< in bytes
inline constexpr std::uint16_t tag_protocol = 0x8100;

struct Mac {
    std::array<std::uint8_t, 6> bytes{};

    bool is_multicast() const { return (bytes[0] & 1) != 0; } ///< broadcast too
    bool is_broadcast() const;
    /// One of 01-80-C2-00-00-00 to 0F, which IEEE 802.1D keeps within a link: no bridge relays it.
    bool is_reserved() const;
    std::string text() const; ///< "02:00:00:00:00:0a"
    auto operator<=>(const Mac &) const = default;
};

/// Reads six pairs of hexadecimal digits, separated all by ':' or all by '-'; none: it is not an address.
std::optional<Mac> parse_mac(std::string_view text);

/// Reads bytes as two hexadecimal digits each, nothing between; none: it is not that.
std::optional<Bytes> parse_hex(std::string_view text);
std::string hex(BytesView bytes); ///< "02000000000a"

/// An IEEE 802.1Q tag.
struct Tag {
    std::uint8_t pcp = 0;  ///< priority code point, 0 to 7
    bool dei = false;      ///< drop eligible indicator
    std::uint16_t vid = 0; ///< VLAN ID, 0 (a priority tag) to 4095

    std::array<std::uint8_t, tag_size> bytes() const; ///< as they are in a frame
    std::string text() const;                         ///< "vlan 100 pcp 5 dei"
    bool operator==(const Tag &) const = default;
};

struct Header {
    Mac destination{};
    Mac source{};
    std::optional<Tag> tag{};     ///< the outer tag
    std::uint16_t ether_type = 0; ///< what follows the outer tag

    std::size_t size() const { return frame_size_min + (tag ? tag_size : 0); } ///< in bytes
    std::string text() const; ///< "02:00:00:00:00:0a > ff:ff:ff:ff:ff:ff, vlan 100 pcp 5, type 0x0800"
};

/// Why bytes are not a frame that the switch takes.
enum class FrameFault : std::uint8_t {
    none,
    runt,    ///< fewer than frame_size_min bytes
    cut_tag, ///< ends within its tag
};

/// Reads a frame's header. `header` is written only when there is no fault.
FrameFault parse(BytesView frame, Header &header);

/// A frame of a header and the bytes that follow it. It is not padded.
Bytes build(const Header &header, BytesView payload);

/// Bytes of a frame after its tag was put on, changed or taken off. One that loses its tag is padded.
/// @param size before that
std::size_t retagged_size(std::size_t size, const Header &header, const std::optional<Tag> &tag);

/// The same frame with another outer tag, or with none, of retagged_size.
/// @param header the frame's own, from parse
Bytes retag(BytesView frame, const Header &header, const std::optional<Tag> &tag);

} // namespace sim

#endif
