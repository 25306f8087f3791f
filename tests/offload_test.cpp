// Frames that a local sender left unfinished: checksums and segments, checked by the receiver's arithmetic.
#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "sim/offload.h"

namespace {

using namespace sim;

constexpr std::uint8_t tcp = 6, udp = 17;
constexpr std::uint8_t fin = 0x01, push = 0x08, ack = 0x10, cwr = 0x80;

void put_16(Bytes &bytes, std::size_t at, std::size_t value)
{
    bytes[at] = static_cast<std::uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<std::uint8_t>(value);
}

std::size_t get_16(const Bytes &bytes, std::size_t at)
{
    return bytes[at] * 256U + bytes[at + 1];
}
/// One's complement sum of 16-bit words, as a receiver adds them up.
std::size_t ones_sum(const Bytes &bytes, std::size_t from, std::size_t to, std::size_t start = 0)
{
    for (std::size_t at = from; at < to; at += 2)
        start += bytes[at] * 256U + (at + 1 < to ? bytes[at + 1] : 0U);
    while (start > 0xFFFF)
        start = (start & 0xFFFF) + (start >> 16);
    return start;
}

struct Kind {
    bool ipv6;
    bool tagged;
    std::uint8_t protocol;

    std::size_t ip() const { return tagged ? 18 : 14; }
    std::size_t transport() const { return ip() + (ipv6 ? 40 : 20); }
    std::size_t transport_size() const { return protocol == tcp ? 32 : 8; } // TCP with a time stamp
    std::size_t data() const { return transport() + transport_size(); }
    std::size_t checksum() const { return transport() + (protocol == tcp ? 16 : 6); }

    std::size_t pseudo_sum(const Bytes &frame) const
    {
        const std::size_t start = protocol + frame.size() - transport();
        return ipv6 ? ones_sum(frame, ip() + 8, ip() + 40, start) : ones_sum(frame, ip() + 12, ip() + 20, start);
    }
};

/// A packet with as much data as said, its checksum left unfinished.
Bytes make_frame(const Kind &kind, std::size_t data_size)
{
    Bytes packet(kind.data() - kind.ip() + data_size);
    for (std::size_t i = 0; i < packet.size(); ++i)
        packet[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    packet[0] = kind.ipv6 ? 0x60 : 0x45;
    packet[kind.ipv6 ? 6 : 9] = kind.protocol;
    put_16(packet, kind.ipv6 ? 4 : 2, packet.size() - (kind.ipv6 ? 40 : 0));
    if (!kind.ipv6) {
        put_16(packet, 4, 0xFFFE); // identification, about to wrap
        put_16(packet, 6, 0x4000); // don't fragment
        put_16(packet, 10, 0);
        put_16(packet, 10, 0xFFFF - ones_sum(packet, 0, 20));
    }
    if (kind.protocol == tcp) {
        const std::size_t at = kind.transport() - kind.ip();
        put_16(packet, at + 4, 0xFFFF); // sequence number 0xFFFFFF00, about to wrap
        put_16(packet, at + 6, 0xFF00);
        packet[at + 12] = 8 << 4;
        packet[at + 13] = ack | push | fin | cwr;
    }
    const Header header{{{2}},
                        {{2}},
                        kind.tagged ? std::optional(Tag{.vid = 100}) : std::nullopt,
                        static_cast<std::uint16_t>(kind.ipv6 ? 0x86DD : 0x0800)};
    Bytes frame = build(header, packet);
    put_16(frame, kind.checksum(), kind.pseudo_sum(frame));
    return frame;
}

bool valid(const Kind &kind, const Bytes &frame)
{
    return ones_sum(frame, kind.transport(), frame.size(), kind.pseudo_sum(frame)) == 0xFFFF &&
           (kind.ipv6 || ones_sum(frame, kind.ip(), kind.ip() + 20) == 0xFFFF);
}

const std::vector<Kind> kinds{{false, false, tcp}, {true, true, tcp}, {false, true, udp}, {true, false, udp}};

TEST(OffloadTest, FinishesChecksums)
{
    constexpr std::size_t mtu = 1499;
    for (const Kind &kind : kinds) {
        SCOPED_TRACE(&kind - kinds.data());
        std::vector<Bytes> cut;
        Bytes frame = make_frame(kind, mtu - (kind.data() - kind.ip())); // just fits, and is odd
        ASSERT_FALSE(valid(kind, frame));
        finish_offload(frame, mtu, cut);
        EXPECT_TRUE(valid(kind, frame));
        EXPECT_TRUE(cut.empty());

        frame.back() ^= 1; // damaged on its way: not for the switch to make good
        const Bytes damaged = frame;
        finish_offload(frame, 1500, cut);
        EXPECT_EQ(frame, damaged);
    }
}

TEST(OffloadTest, AUdpChecksumOfZeroIsSentAsOnes)
{
    const Kind kind{false, false, udp};
    std::vector<Bytes> cut;
    Bytes frame = make_frame(kind, 100);
    put_16(frame, kind.data(), 0);
    finish_offload(frame, 1500, cut);
    const std::size_t checksum = get_16(frame, kind.checksum());

    put_16(frame, kind.data(), checksum); // with which the checksum comes to 0
    put_16(frame, kind.checksum(), kind.pseudo_sum(frame));
    finish_offload(frame, 1500, cut);
    EXPECT_EQ(get_16(frame, kind.checksum()), 0xFFFFU);
}

TEST(OffloadTest, StepsOverExtensionHeaders)
{
    const Kind kind{true, false, udp};
    std::vector<Bytes> cut;
    Bytes plain = make_frame(kind, 100);
    Bytes extended = plain;
    extended[kind.ip() + 6] = 0; // a hop-by-hop header follows, then UDP
    put_16(extended, kind.ip() + 4, get_16(plain, kind.ip() + 4) + 8);
    const Bytes hop_by_hop{udp, 0, 1, 4, 0, 0, 0, 0};
    extended.insert(extended.begin() + static_cast<std::ptrdiff_t>(kind.transport()), hop_by_hop.begin(),
                    hop_by_hop.end());

    finish_offload(plain, 1500, cut);
    finish_offload(extended, 1500, cut);
    EXPECT_EQ(get_16(extended, kind.checksum() + 8), get_16(plain, kind.checksum()));
}

TEST(OffloadTest, CutsSegmentsToTheMtu)
{
    constexpr std::size_t mtu = 1500, data_size = 4000;
    for (const Kind &kind : kinds) {
        if (kind.protocol != tcp)
            continue;
        SCOPED_TRACE(&kind - kinds.data());
        Bytes frame = make_frame(kind, data_size);
        std::vector<Bytes> cut;
        finish_offload(frame, mtu, cut);

        ASSERT_EQ(cut.size(), 3U);
        Bytes data;
        for (std::size_t i = 0; i < cut.size(); ++i) {
            const Bytes &piece = cut[i];
            EXPECT_TRUE(valid(kind, piece)) << i;
            EXPECT_EQ(get_16(piece, kind.ip() + (kind.ipv6 ? 4 : 2)), piece.size() - kind.ip() - (kind.ipv6 ? 40 : 0));
            EXPECT_LE(piece.size() - kind.ip(), mtu);
            if (!kind.ipv6) {
                EXPECT_EQ(get_16(piece, kind.ip() + 4), (0xFFFE + i) & 0xFFFF);
            }
            EXPECT_EQ(get_16(piece, kind.transport() + 4), i == 0 ? 0xFFFFU : 0U);
            EXPECT_EQ(get_16(piece, kind.transport() + 6), (0xFF00 + data.size()) & 0xFFFF);
            EXPECT_EQ(piece[kind.transport() + 13], ack | (i == 0 ? cwr : 0) | (i == 2 ? push | fin : 0));
            data.insert(data.end(), piece.begin() + static_cast<std::ptrdiff_t>(kind.data()), piece.end());
        }
        EXPECT_TRUE(std::equal(data.begin(), data.end(), frame.begin() + static_cast<std::ptrdiff_t>(kind.data()),
                               frame.end()));
    }
}

TEST(OffloadTest, LeavesOtherFramesAlone)
{
    const Kind kind{false, false, tcp};
    std::vector<Bytes> frames{make_frame(kind, 100), make_frame(kind, 100), make_frame(kind, 100),
                              make_frame(kind, 100), make_frame(kind, 100)};
    frames[0][kind.ip() + 6] |= 0x20;      // more fragments
    put_16(frames[1], kind.ip() + 2, 400); // longer than its frame
    frames[2][kind.ip()] = 0x44;           // header too short
    frames[3][kind.ip() + 9] = 1;          // ICMP
    put_16(frames[4], 12, 0x88B5);         // not IP
    for (std::size_t size = 0; size < kind.data(); ++size) {
        frames.push_back(make_frame(kind, 0));
        frames.back().resize(size);
    }
    for (std::size_t i = 0; i < frames.size(); ++i) {
        Bytes frame = frames[i];
        std::vector<Bytes> cut;
        finish_offload(frame, 1500, cut);
        EXPECT_EQ(frame, frames[i]) << i;
        EXPECT_TRUE(cut.empty()) << i;
    }
}

} // namespace
