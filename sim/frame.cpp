#include "sim/frame.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

namespace sim {
namespace {

std::uint16_t read_16(BytesView bytes, std::size_t at)
{
    return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

void append_16(Bytes &bytes, unsigned value)
{
    bytes.push_back(static_cast<std::uint8_t>(value >> 8));
    bytes.push_back(static_cast<std::uint8_t>(value));
}

void append(Bytes &bytes, BytesView more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

void append_tag(Bytes &bytes, const std::optional<Tag> &tag)
{
    if (tag)
        append(bytes, tag->bytes());
}

} // namespace

bool Mac::is_broadcast() const
{
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0xFF; });
}

bool Mac::is_reserved() const
{
    constexpr std::array<std::uint8_t, 5> prefix{0x01, 0x80, 0xC2, 0x00, 0x00};
    return std::equal(prefix.begin(), prefix.end(), bytes.begin()) && bytes[5] <= 0x0F;
}

std::string Mac::text() const
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text = "00:00:00:00:00:00"; // by hand: a full database shows thousands while frames wait
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text[3 * i] = digits[bytes[i] >> 4];
        text[3 * i + 1] = digits[bytes[i] & 0xF];
    }
    return text;
}

std::optional<Mac> parse_mac(std::string_view text)
{
    Mac mac;
    if (text.size() != mac.bytes.size() * 3 - 1 || (text[2] != ':' && text[2] != '-'))
        return std::nullopt;
    for (std::size_t i = 0; i < mac.bytes.size(); ++i) {
        const char *pair = text.data() + i * 3;
        const auto [end, error] = std::from_chars(pair, pair + 2, mac.bytes[i], 16);
        if (error != std::errc{} || end != pair + 2)
            return std::nullopt;
        if (i > 0 && pair[-1] != text[2])
            return std::nullopt;
    }
    return mac;
}

std::optional<Bytes> parse_hex(std::string_view text)
{
    Bytes bytes(text.size() / 2);
    if (text.empty() || text.size() % 2 != 0)
        return std::nullopt;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char *pair = text.data() + 2 * i;
        if (const auto [end, error] = std::from_chars(pair, pair + 2, bytes[i], 16); end != pair + 2)
            return std::nullopt;
    }
    return bytes;
}

std::string hex(BytesView bytes)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4U];
        text += digits[byte & 0xFU];
    }
    return text;
}

std::array<std::uint8_t, tag_size> Tag::bytes() const
{
    const unsigned control = (pcp & 7u) << 13 | (dei ? 1u << 12 : 0u) | (vid & 0xFFFu);
    return {tag_protocol >> 8, tag_protocol & 0xFF, static_cast<std::uint8_t>(control >> 8),
            static_cast<std::uint8_t>(control)};
}

std::string Tag::text() const
{
    return fmt::format("{} pcp {}{}", vid == 0 ? "priority tag" : fmt::format("vlan {}", vid), pcp, dei ? " dei" : "");
}

std::string Header::text() const
{
    return fmt::format("{} > {}, {}, type 0x{:04x}", source.text(), destination.text(), tag ? tag->text() : "untagged",
                       ether_type);
}

FrameFault parse(BytesView frame, Header &header)
{
    if (frame.size() < frame_size_min)
        return FrameFault::runt;

    const bool tagged = read_16(frame, addresses_size) == tag_protocol;
    if (tagged && frame.size() < frame_size_min + tag_size)
        return FrameFault::cut_tag;

    std::copy_n(frame.begin(), 6, header.destination.bytes.begin());
    std::copy_n(frame.begin() + 6, 6, header.source.bytes.begin());
    header.tag.reset();
    if (tagged) {
        const std::uint16_t control = read_16(frame, addresses_size + 2);
        header.tag = Tag{static_cast<std::uint8_t>(control >> 13), (control & 0x1000) != 0,
                         static_cast<std::uint16_t>(control & 0xFFF)};
    }
    header.ether_type = read_16(frame, header.size() - 2);
    return FrameFault::none;
}

Bytes build(const Header &header, BytesView payload)
{
    Bytes frame;
    frame.reserve(header.size() + payload.size());
    append(frame, header.destination.bytes);
    append(frame, header.source.bytes);
    append_tag(frame, header.tag);
    append_16(frame, header.ether_type);
    append(frame, payload);
    return frame;
}

std::size_t retagged_size(std::size_t size, const Header &header, const std::optional<Tag> &tag)
{
    const std::size_t retagged = size - header.size() + frame_size_min + (tag ? tag_size : 0);
    return header.tag && !tag ? std::max(retagged, frame_size_wire) : retagged;
}

Bytes retag(BytesView frame, const Header &header, const std::optional<Tag> &tag)
{
    Bytes result;
    result.reserve(frame.size() + frame_size_wire);
    append(result, frame.first(addresses_size));
    append_tag(result, tag);
    append(result, frame.subspan(header.size() - 2));
    result.resize(retagged_size(frame.size(), header, tag));
    return result;
}

} // namespace sim
