#include "sim/packet_socket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>

namespace sim {
namespace {

/// The longest IP packet behind the longest header: what a sender leaves to be cut.
constexpr std::size_t rest_size = 65535 + frame_size_min + 2 * tag_size;
/// No power of two, or all frames would share the same few lines of the processor's caches.
constexpr std::size_t slot_size = (64 << 10) + (1 << 10) + 64;
static_assert(sizeof(Unfinished) + addresses_size + tag_size + rest_size <= slot_size);

constexpr std::array<std::uint8_t, frame_size_wire> padding{};

[[noreturn]] void fail(const char *what)
{
    throw SocketError(fmt::format("{}: {}", what, std::strerror(errno))); // NOLINT(concurrency-mt-unsafe)
}

void set_option(int socket, int level, int option, int value, const char *what)
{
    if (setsockopt(socket, level, option, &value, sizeof value) != 0)
        fail(what);
}

/// Sets a size that only a privileged process may have, else the largest that anybody may.
void set_buffer(int socket, int forced, int allowed, std::size_t size)
{
    const int half = static_cast<int>(size / 2); // the kernel doubles it
    if (setsockopt(socket, SOL_SOCKET, forced, &half, sizeof half) != 0)
        set_option(socket, SOL_SOCKET, allowed, half, "cannot set the size of a packet socket's buffer");
}

void write_16(std::uint8_t *bytes, unsigned value)
{
    bytes[0] = static_cast<std::uint8_t>(value >> 8);
    bytes[1] = static_cast<std::uint8_t>(value);
}

/// Accounts for bytes that were put in (or, negative, taken out) in front of the network header.
void move_offsets(Unfinished &unfinished, int bytes)
{
    const auto move = [bytes](std::uint16_t offset) { return static_cast<std::uint16_t>(offset + bytes); };
    if ((unfinished.flags & Unfinished::needs_checksum) != 0)
        unfinished.csum_start = move(unfinished.csum_start);
    if (unfinished.is_segmented())
        unfinished.hdr_len = move(unfinished.hdr_len);
}

/// Bytes of all headers, which each piece of a frame that is to be cut repeats.
std::size_t headers_size(BytesView frame, const Unfinished &unfinished)
{
    constexpr std::size_t udp_header_size = 8;
    constexpr std::size_t tcp_data_offset = 12; // of the byte that holds the header's size in words
    const std::size_t transport = unfinished.csum_start;
    if ((unfinished.gso_type & ~Unfinished::ecn) == Unfinished::udp)
        return std::min(frame.size(), transport + udp_header_size);
    if (transport + tcp_data_offset >= frame.size())
        return frame.size();
    return std::min(frame.size(), transport + static_cast<std::size_t>(frame[transport + tcp_data_offset] >> 4) * 4);
}

/// The tag that the kernel took out of a frame, as four bytes of it; false: none.
bool read_removed_tag(msghdr &message, std::uint8_t *tag)
{
    for (cmsghdr *control = CMSG_FIRSTHDR(&message); control != nullptr; control = CMSG_NXTHDR(&message, control)) {
        if (control->cmsg_level != SOL_PACKET || control->cmsg_type != PACKET_AUXDATA)
            continue;
        tpacket_auxdata data{};
        std::memcpy(&data, CMSG_DATA(control), sizeof data);
        if ((data.tp_status & TP_STATUS_VLAN_VALID) == 0)
            return false;
        write_16(tag, (data.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0 ? data.tp_vlan_tpid : tag_protocol);
        write_16(tag + 2, data.tp_vlan_tci);
        return true;
    }
    return false;
}

} // namespace

// ---- Receiving ------------------------------------------------------------------------------------

ReceiveBuffers::ReceiveBuffers() : memory_(new std::uint8_t[count * slot_size])
{
    frames_.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        Slot &slot = slots_[i];
        slot.memory = &memory_[i * slot_size];
        slot.parts = {iovec{slot.memory, sizeof(Unfinished) + addresses_size},
                      iovec{slot.memory + sizeof(Unfinished) + addresses_size + tag_size, rest_size}};
        messages_[i].msg_hdr.msg_iov = slot.parts.data();
        messages_[i].msg_hdr.msg_iovlen = slot.parts.size();
        messages_[i].msg_hdr.msg_control = slot.control.data();
        messages_[i].msg_hdr.msg_controllen = slot.control.size();
    }
}

/// Reads a message as a frame. @return false: it is not whole
bool ReceiveBuffers::read(std::size_t index, ReceivedFrame &frame)
{
    msghdr &message = messages_[index].msg_hdr;
    const std::size_t size = messages_[index].msg_len - sizeof(Unfinished);
    if ((message.msg_flags & MSG_TRUNC) != 0 || messages_[index].msg_len < sizeof(Unfinished) + frame_size_min)
        return false;

    std::uint8_t *const addresses = slots_[index].memory + sizeof frame.unfinished;
    std::memcpy(&frame.unfinished, slots_[index].memory, sizeof frame.unfinished);
    frame.unfinished.flags &= Unfinished::needs_checksum; // the others are advice
    if (read_removed_tag(message, addresses + addresses_size)) {
        frame.bytes = {addresses, size + tag_size};
        move_offsets(frame.unfinished, tag_size);
    } else {
        std::memmove(addresses + tag_size, addresses, addresses_size);
        frame.bytes = {addresses + tag_size, size};
    }
    frame.wire_size = frame.bytes.size();
    if (frame.unfinished.is_segmented()) {
        const std::size_t headers = headers_size(frame.bytes, frame.unfinished);
        frame.unfinished.hdr_len = static_cast<std::uint16_t>(headers);
        frame.wire_size = std::min(frame.bytes.size(), headers + frame.unfinished.gso_size);
    }
    return true;
}

std::span<const ReceivedFrame> PacketSocket::receive(ReceiveBuffers &buffers)
{
    buffers.frames_.clear();
    const int received =
        recvmmsg(socket_.get(), buffers.messages_.data(), ReceiveBuffers::count, MSG_DONTWAIT, nullptr);
    if (received < 0) {
        // One that went down tells so here and through its link. EINVAL: a frame that the header cannot describe.
        if (errno == EINVAL)
            ++counters_.unreadable;
        return {};
    }
    for (std::size_t i = 0; i < static_cast<std::size_t>(received); ++i) {
        ReceivedFrame frame;
        if (buffers.read(i, frame))
            buffers.frames_.push_back(frame);
        else
            ++counters_.unreadable;
        buffers.messages_[i].msg_hdr.msg_controllen = buffers.slots_[i].control.size();
    }
    counters_.received += static_cast<std::uint64_t>(received);
    return buffers.frames_;
}

std::uint64_t PacketSocket::count_missed()
{
    tpacket_stats statistics{}; // since they were last read
    socklen_t size = sizeof statistics;
    if (getsockopt(socket_.get(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size) != 0)
        return 0;
    counters_.missed += statistics.tp_drops;
    return statistics.tp_drops;
}

// ---- Opening --------------------------------------------------------------------------------------

PacketSocket::PacketSocket(std::size_t buffer_size)
    : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) // of no protocol: nothing is received before bind
{
    if (socket_.get() < 0)
        fail("cannot open a packet socket");
    const char *const unsupported = "the kernel's packet sockets are too old";
    set_option(socket_.get(), SOL_PACKET, PACKET_VNET_HDR, 1, unsupported);
    set_option(socket_.get(), SOL_PACKET, PACKET_AUXDATA, 1, unsupported);
    set_option(socket_.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, 1, unsupported);
    set_buffer(socket_.get(), SO_RCVBUFFORCE, SO_RCVBUF, buffer_size);
    set_buffer(socket_.get(), SO_SNDBUFFORCE, SO_SNDBUF, buffer_size);
    for (std::size_t i = 0; i < batch; ++i)
        messages_[i].msg_hdr.msg_iov = outgoing_[i].parts.data();
}

void PacketSocket::bind(unsigned index)
{
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(index);
    if (::bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        fail("cannot bind a packet socket");
    packet_mreq membership{};
    membership.mr_ifindex = static_cast<int>(index);
    membership.mr_type = PACKET_MR_PROMISC;
    if (setsockopt(socket_.get(), SOL_PACKET, PACKET_ADD_MEMBERSHIP, &membership, sizeof membership) != 0)
        fail("cannot listen to frames for other stations");
}

std::size_t PacketSocket::buffer_size() const
{
    int size = 0;
    socklen_t size_of_size = sizeof size;
    getsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &size, &size_of_size);
    return static_cast<std::size_t>(size);
}

// ---- Sending --------------------------------------------------------------------------------------

void PacketSocket::queue(const ReceivedFrame &frame, const Header &header, const std::optional<Tag> &tag)
{
    if (queued_ == batch)
        send();
    Outgoing &outgoing = outgoing_[queued_++];
    Unfinished unfinished = frame.unfinished;
    move_offsets(unfinished, (tag ? int{tag_size} : 0) - (header.tag ? int{tag_size} : 0));

    std::uint8_t *const addresses = outgoing.head.data() + sizeof unfinished;
    std::memcpy(outgoing.head.data(), &unfinished, sizeof unfinished);
    std::memcpy(addresses, frame.bytes.data(), addresses_size);
    if (tag)
        std::memcpy(addresses + addresses_size, tag->bytes().data(), tag_size);
    const std::size_t head_size = addresses_size + (tag ? tag_size : 0);
    const BytesView rest = frame.bytes.subspan(addresses_size + (header.tag ? tag_size : 0));
    const std::size_t missing = retagged_size(frame.bytes.size(), header, tag) - head_size - rest.size();
    outgoing.parts = {iovec{outgoing.head.data(), sizeof unfinished + head_size},
                      iovec{const_cast<std::uint8_t *>(rest.data()), rest.size()}, // sendmmsg only reads
                      iovec{const_cast<std::uint8_t *>(padding.data()), missing}};
    messages_[queued_ - 1].msg_hdr.msg_iovlen = missing != 0 ? 3 : 2;
}

void PacketSocket::send()
{
    for (std::size_t done = 0; done < queued_;) {
        const int sent = sendmmsg(socket_.get(), &messages_[done], static_cast<unsigned>(queued_ - done), MSG_DONTWAIT);
        if (sent < 0 && errno == EINTR)
            continue;
        counters_.sent += sent > 0 ? static_cast<std::uint64_t>(sent) : 0;
        counters_.refused += sent > 0 ? 0 : 1;
        done += sent > 0 ? static_cast<std::size_t>(sent) : 1;
    }
    queued_ = 0;
}

} // namespace sim
