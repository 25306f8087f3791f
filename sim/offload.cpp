#include "sim/offload.h"

#include <algorithm>
#include <utility>

#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/tcp.h>

namespace sim {
namespace {

constexpr std::uint16_t ipv4_type = 0x0800;
constexpr std::uint16_t ipv6_type = 0x86DD;
constexpr std::size_t ipv4_header_min = 20;
constexpr std::size_t ipv6_header_size = 40;
constexpr std::size_t udp_header_size = 8;
constexpr std::size_t tcp_header_min = 20;

std::uint16_t read_16(BytesView bytes, std::size_t at)
{
    return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

std::uint32_t read_32(BytesView bytes, std::size_t at)
{
    return static_cast<std::uint32_t>(read_16(bytes, at)) << 16 | read_16(bytes, at + 2);
}

void write_16(std::span<std::uint8_t> bytes, std::size_t at, std::size_t value)
{
    bytes[at] = static_cast<std::uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<std::uint8_t>(value);
}

void write_32(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value)
{
    write_16(bytes, at, value >> 16);
    write_16(bytes, at + 2, value & 0xFFFF);
}

/// One's complement sum of RFC 1071, not yet folded to 16 bits.
std::uint64_t sum(BytesView bytes)
{
    std::uint64_t total = 0;
    std::size_t at = 0;
    for (; at + 1 < bytes.size(); at += 2)
        total += read_16(bytes, at);
    if (at < bytes.size())
        total += static_cast<std::uint64_t>(bytes[at]) << 8;
    return total;
}

std::uint16_t fold(std::uint64_t total)
{
    while (total > 0xFFFF)
        total = (total & 0xFFFF) + (total >> 16);
    return static_cast<std::uint16_t>(total);
}

/// Where the parts of a TCP or UDP packet lie in its frame. All are offsets in bytes.
struct Layout {
    std::size_t ip = 0;
    std::size_t transport = 0;
    std::size_t end = 0; ///< of the packet; behind it is padding
    bool ipv6 = false;
    std::uint8_t protocol = 0; ///< IPPROTO_TCP or IPPROTO_UDP

    std::size_t packet_size() const { return end - ip; }
    std::size_t checksum() const { return transport + (protocol == IPPROTO_TCP ? 16 : 6); }
};

/// Steps over the extension headers that a host may put in front of TCP or UDP; false: it is neither.
bool find_ipv6_transport(BytesView frame, Layout &layout)
{
    std::uint8_t next = frame[layout.ip + 6];
    std::size_t at = layout.ip + ipv6_header_size;
    while (next == IPPROTO_HOPOPTS || next == IPPROTO_ROUTING || next == IPPROTO_DSTOPTS) {
        if (at + 8 > layout.end)
            return false;
        next = frame[at];
        at += (static_cast<std::size_t>(frame[at + 1]) + 1) * 8;
    }
    layout.protocol = next;
    layout.transport = at;
    return true;
}

bool find_ipv4_transport(BytesView frame, Layout &layout)
{
    const std::uint16_t fragment = read_16(frame, layout.ip + 6);
    if ((fragment & (IP_MF | IP_OFFMASK)) != 0)
        return false;
    layout.protocol = frame[layout.ip + 9];
    layout.transport = layout.ip + (frame[layout.ip] & 0xFu) * std::size_t{4};
    return layout.transport >= layout.ip + ipv4_header_min;
}

/// The packet in a frame; none: it is not a whole TCP or UDP packet.
std::optional<Layout> find_packet(BytesView frame)
{
    std::size_t type_at = frame_size_min - 2;
    while (type_at + 2 + tag_size <= frame.size() && read_16(frame, type_at) == tag_protocol)
        type_at += tag_size;

    Layout layout{.ip = type_at + 2};
    if (layout.ip + ipv4_header_min > frame.size())
        return std::nullopt;
    const std::uint16_t type = read_16(frame, type_at);
    layout.ipv6 = type == ipv6_type;
    if (layout.ipv6) {
        if (layout.ip + ipv6_header_size > frame.size())
            return std::nullopt;
        layout.end = layout.ip + ipv6_header_size + read_16(frame, layout.ip + 4);
    } else if (type == ipv4_type) {
        layout.end = layout.ip + read_16(frame, layout.ip + 2);
    } else {
        return std::nullopt;
    }
    if (layout.end > frame.size())
        return std::nullopt;

    if (!(layout.ipv6 ? find_ipv6_transport(frame, layout) : find_ipv4_transport(frame, layout)))
        return std::nullopt;
    const bool tcp = layout.protocol == IPPROTO_TCP;
    if (!tcp && layout.protocol != IPPROTO_UDP)
        return std::nullopt;
    if (layout.transport + (tcp ? tcp_header_min : udp_header_size) > layout.end)
        return std::nullopt;
    return layout;
}

/// Sum of the pseudo header of RFC 9293 and RFC 8200.
std::uint16_t pseudo_header_sum(BytesView frame, const Layout &layout)
{
    const BytesView addresses = layout.ipv6 ? frame.subspan(layout.ip + 8, 32) : frame.subspan(layout.ip + 12, 8);
    return fold(sum(addresses) + layout.protocol + (layout.end - layout.transport));
}

void write_transport_checksum(std::span<std::uint8_t> frame, const Layout &layout)
{
    write_16(frame, layout.checksum(), 0);
    const std::uint64_t total = sum(frame.subspan(layout.transport, layout.end - layout.transport));
    std::uint16_t checksum = static_cast<std::uint16_t>(~fold(total + pseudo_header_sum(frame, layout)));
    if (checksum == 0 && layout.protocol == IPPROTO_UDP)
        checksum = 0xFFFF; // 0 says that there is none
    write_16(frame, layout.checksum(), checksum);
}

void write_packet_size(std::span<std::uint8_t> frame, const Layout &layout)
{
    if (layout.ipv6) {
        write_16(frame, layout.ip + 4, layout.packet_size() - ipv6_header_size);
        return;
    }
    write_16(frame, layout.ip + 2, layout.packet_size());
    write_16(frame, layout.ip + 10, 0);
    const BytesView header = BytesView(frame).subspan(layout.ip, layout.transport - layout.ip);
    write_16(frame, layout.ip + 10, static_cast<std::uint16_t>(~fold(sum(header))));
}

/// Cuts a TCP segment as a network card does.
void cut_segment(BytesView frame, const Layout &layout, std::size_t mtu, std::vector<Bytes> &cut)
{
    const std::size_t tcp_header = (frame[layout.transport + 12] >> 4) * std::size_t{4};
    const std::size_t data = layout.transport + tcp_header;
    if (tcp_header < tcp_header_min || data > layout.end || data - layout.ip >= mtu)
        return;

    const std::size_t piece_max = mtu - (data - layout.ip);
    const std::uint32_t sequence = read_32(frame, layout.transport + 4);
    const std::uint16_t identification = read_16(frame, layout.ip + 4); // of IPv4
    const std::uint8_t flags = frame[layout.transport + 13];

    for (std::size_t at = data; at < layout.end; at += piece_max) {
        const std::size_t size = std::min(piece_max, layout.end - at);
        const bool first = at == data, last = at + size == layout.end;

        Bytes piece(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(data));
        piece.insert(piece.end(), frame.begin() + static_cast<std::ptrdiff_t>(at),
                     frame.begin() + static_cast<std::ptrdiff_t>(at + size));
        Layout of_piece = layout;
        of_piece.end = piece.size();

        if (!layout.ipv6)
            write_16(piece, layout.ip + 4, identification + cut.size());
        write_packet_size(piece, of_piece);
        write_32(piece, layout.transport + 4, static_cast<std::uint32_t>(sequence + (at - data)));
        std::uint8_t &piece_flags = piece[layout.transport + 13];
        piece_flags = flags;
        if (!last)
            piece_flags &= static_cast<std::uint8_t>(~(TH_FIN | TH_PUSH));
        if (!first)
            piece_flags &= static_cast<std::uint8_t>(~0x80u); // CWR
        write_transport_checksum(piece, of_piece);
        cut.push_back(std::move(piece));
    }
}

} // namespace

void finish_offload(std::span<std::uint8_t> frame, std::size_t mtu, std::vector<Bytes> &cut)
{
    cut.clear();
    const std::optional<Layout> layout = find_packet(frame);
    if (!layout)
        return;
    if (layout->protocol == IPPROTO_TCP && layout->packet_size() > mtu)
        cut_segment(frame, *layout, mtu, cut);
    else if (read_16(frame, layout->checksum()) == pseudo_header_sum(frame, *layout))
        write_transport_checksum(frame, *layout);
}

} // namespace sim
