#include "sim/packet_socket.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <utility>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/mman.h>

namespace sim {
namespace {

constexpr std::size_t turn = 64; ///< frames taken at once

/// The longest IP packet behind the longest header: what a sender leaves to be cut.
constexpr std::size_t long_size = sizeof(Unfinished) + 65535 + frame_size_min + 2 * tag_size;
// No power of two, or all frames would share the same few lines of the processor's caches.
constexpr std::size_t long_stride = (64 << 10) + (1 << 10) + 64;
static_assert(tag_size + long_size <= long_stride);

/// Holds a frame of 1,518 bytes with what the kernel tells of it. An odd number of cache lines, for the same reason;
/// a block's pages are then slots without a gap.
constexpr std::size_t slot_size = std::size_t{31} * 64;
constexpr std::size_t slots_of_block = 64;
constexpr std::size_t block_size = slots_of_block * slot_size; ///< bytes that the kernel takes in one piece
static_assert(block_size % 4096 == 0);

constexpr std::array<std::uint8_t, frame_size_wire> padding{};

constexpr const char *unsupported = "the kernel's packet sockets are too old";

[[noreturn]] void fail(const char *what)
{
    throw SocketError(fmt::format("{}: {}", what, std::strerror(errno))); // NOLINT(concurrency-mt-unsafe)
}

template <typename Value> void set_option(int socket, int level, int option, const Value &value, const char *what)
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

/// A frame as the kernel has handed it over.
struct Arrival {
    std::uint8_t *bytes;     ///< behind what is unfinished, in front of which a tag has room
    std::size_t size;        ///< 0: it is not whole
    tpacket_auxdata details; ///< with the tag, if the kernel took it out
    bool is_missed = false;  ///< there was no room for all of it
};

ReceivedFrame make_frame(const Arrival &arrival)
{
    std::uint8_t *bytes = arrival.bytes;
    std::size_t size = arrival.size;
    ReceivedFrame frame;
    std::memcpy(&frame.unfinished, bytes - sizeof frame.unfinished, sizeof frame.unfinished);
    frame.unfinished.flags &= Unfinished::needs_checksum; // the others are advice
    if ((arrival.details.tp_status & TP_STATUS_VLAN_VALID) != 0) {
        std::memmove(bytes - tag_size, bytes, addresses_size);
        bytes -= tag_size;
        size += tag_size;
        write_16(bytes + addresses_size, (arrival.details.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0
                                             ? arrival.details.tp_vlan_tpid
                                             : tag_protocol);
        write_16(bytes + addresses_size + 2, arrival.details.tp_vlan_tci);
        move_offsets(frame.unfinished, tag_size);
    }
    frame.bytes = {bytes, size};
    frame.wire_size = size;
    if (frame.unfinished.is_segmented()) {
        const std::size_t headers = headers_size(frame.bytes, frame.unfinished);
        frame.unfinished.hdr_len = static_cast<std::uint16_t>(headers);
        frame.wire_size = std::min(size, headers + frame.unfinished.gso_size);
    }
    std::memcpy(bytes - sizeof frame.unfinished, &frame.unfinished, sizeof frame.unfinished);
    return frame;
}

/// Takes the next frame of a socket's queue. @param memory for it @return nothing: there is none
std::optional<Arrival> take_queued(int socket, std::span<std::uint8_t> memory)
{
    Arrival arrival{memory.data() + sizeof(Unfinished), 0, {}};
    iovec room{memory.data(), memory.size()};
    alignas(cmsghdr) std::array<std::uint8_t, CMSG_SPACE(sizeof arrival.details)> control{};
    msghdr message{};
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ssize_t size = -1;
    do
        size = recvmsg(socket, &message, MSG_DONTWAIT);
    while (size < 0 && (errno == EINTR || errno == ENETDOWN)); // the latter tells of the interface, once
    if (size < 0 && errno != EINVAL)                           // which is a frame that the header cannot describe
        return std::nullopt;
    if (size > ssize_t{sizeof(Unfinished)} && (message.msg_flags & MSG_TRUNC) == 0)
        arrival.size = static_cast<std::size_t>(size) - sizeof(Unfinished);
    if (const cmsghdr *const details = CMSG_FIRSTHDR(&message); details != nullptr)
        std::memcpy(&arrival.details, CMSG_DATA(details), sizeof arrival.details);
    return arrival;
}

/// What the kernel tells of a slot's frame.
tpacket2_hdr &header_of(void *slot)
{
    return *static_cast<tpacket2_hdr *>(slot);
}

std::atomic_ref<std::uint32_t> status_of(void *slot)
{
    return std::atomic_ref<std::uint32_t>(header_of(slot).tp_status);
}

/// Takes the frame of a slot. One that is too long for it waits whole in the socket's queue, if that had room.
Arrival take_slot(int socket, std::uint8_t *slot, std::span<std::uint8_t> memory)
{
    const tpacket2_hdr &header = header_of(slot);
    Arrival arrival{slot + header.tp_mac, header.tp_len, {}, header.tp_snaplen < header.tp_len};
    if ((header.tp_status & TP_STATUS_COPY) != 0)
        return take_queued(socket, memory).value_or(arrival);
    arrival.details.tp_status = header.tp_status;
    arrival.details.tp_vlan_tci = header.tp_vlan_tci;
    arrival.details.tp_vlan_tpid = header.tp_vlan_tpid;
    return arrival;
}

/// Takes a socket's error, of which its interface's link tells as well, or waiting for frames would end at once.
void clear_error(int socket)
{
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
}

} // namespace

// ---- The ring -------------------------------------------------------------------------------------

ReceiveRing::ReceiveRing(int socket, std::size_t size)
    : socket_(socket), slots_((size + block_size - 1) / block_size * slots_of_block)
{
    set_option(socket, SOL_PACKET, PACKET_VERSION, int{TPACKET_V2}, unsupported);
    set_option(socket, SOL_PACKET, PACKET_COPY_THRESH, 1, unsupported); // frames that are too long go into the queue
    const tpacket_req request{.tp_block_size = block_size,
                              .tp_block_nr = static_cast<unsigned>(slots_ / slots_of_block),
                              .tp_frame_size = slot_size,
                              .tp_frame_nr = static_cast<unsigned>(slots_)};
    set_option(socket, SOL_PACKET, PACKET_RX_RING, request, "cannot have a ring for frames");
    void *const memory = mmap(nullptr, this->size(), PROT_READ | PROT_WRITE, MAP_SHARED, socket, 0);
    if (memory == MAP_FAILED)
        fail("cannot map a ring for frames");
    memory_ = static_cast<std::uint8_t *>(memory);
}

ReceiveRing::~ReceiveRing()
{
    munmap(memory_, size());
    const tpacket_req none{};
    setsockopt(socket_, SOL_PACKET, PACKET_RX_RING, &none, sizeof none);
}

std::size_t ReceiveRing::size() const
{
    return slots_ * slot_size;
}

std::uint8_t *ReceiveRing::slot(std::size_t index) const
{
    return memory_ + index * slot_size;
}

bool ReceiveRing::has_frame() const
{
    return (status_of(slot(next_)).load(std::memory_order_acquire) & TP_STATUS_USER) != 0;
}

std::uint8_t *ReceiveRing::take()
{
    std::uint8_t *const taken = slot(next_);
    next_ = after(next_);
    return taken;
}

void ReceiveRing::give_back()
{
    for (; taken_ != next_; taken_ = after(taken_))
        status_of(slot(taken_)).store(TP_STATUS_KERNEL, std::memory_order_release);
}

// ---- Receiving ------------------------------------------------------------------------------------

ReceiveBuffers::ReceiveBuffers() : memory_(new std::uint8_t[turn * long_stride])
{
    frames_.reserve(turn);
}

std::span<const ReceivedFrame> PacketSocket::receive(ReceiveBuffers &buffers)
{
    buffers.frames_.clear();
    std::size_t taken = 0;
    for (; taken < turn && (!ring_ || ring_->has_frame()); ++taken) {
        const std::span memory(&buffers.memory_[taken * long_stride + tag_size], long_size);
        const std::optional<Arrival> arrival =
            ring_ ? take_slot(receiver_.get(), ring_->take(), memory) : take_queued(receiver_.get(), memory);
        if (!arrival)
            break;
        counters_.received += arrival->is_missed ? 0 : 1;
        if (arrival->is_missed)
            ++missed_long_;
        else if (arrival->size >= frame_size_min)
            buffers.frames_.push_back(make_frame(*arrival));
        else
            ++counters_.unreadable;
    }
    if (taken == 0)
        clear_error(receiver_.get());
    taken_since_count_ += taken;
    return buffers.frames_;
}

void PacketSocket::end_turn()
{
    if (ring_)
        ring_->give_back();
}

std::uint64_t PacketSocket::count_missed()
{
    tpacket_stats statistics{}; // since they were last read
    socklen_t size = sizeof statistics;
    if (getsockopt(receiver_.get(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size) != 0)
        return 0;
    const bool none_taken = std::exchange(taken_since_count_, 0) == 0;
    if (ring_ && statistics.tp_drops != 0 && none_taken && !ring_->has_frame())
        is_ring_stuck_ = true;
    const std::uint64_t missed = statistics.tp_drops + std::exchange(missed_long_, 0);
    counters_.missed += missed;
    return missed;
}

void PacketSocket::leave_ring()
{
    ring_.reset();
    is_ring_stuck_ = false;
}

// ---- Opening --------------------------------------------------------------------------------------

namespace {

/// A packet socket of no protocol: it receives nothing before it is bound.
int open_socket()
{
    const int opened = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (opened < 0)
        fail("cannot open a packet socket");
    return opened;
}

/// @param protocol of the frames that the socket is to receive
void bind_socket(int socket, unsigned interface, std::uint16_t protocol)
{
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(protocol);
    address.sll_ifindex = static_cast<int>(interface);
    if (bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        fail("cannot bind a packet socket");
}

} // namespace

PacketSocket::PacketSocket(std::size_t buffer_size) : receiver_(open_socket()), sender_(open_socket())
{
    for (const int socket : {receiver_.get(), sender_.get()})
        set_option(socket, SOL_PACKET, PACKET_VNET_HDR, 1, unsupported); // before there is a ring
    set_option(receiver_.get(), SOL_PACKET, PACKET_AUXDATA, 1, unsupported);
    set_option(receiver_.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, 1, unsupported);
    set_buffer(receiver_.get(), SO_RCVBUFFORCE, SO_RCVBUF, buffer_size / 2);
    ring_.emplace(receiver_.get(), buffer_size / 2);
    set_buffer(sender_.get(), SO_SNDBUFFORCE, SO_SNDBUF, buffer_size);
    for (std::size_t i = 0; i < batch; ++i)
        messages_[i].msg_hdr.msg_iov = outgoing_[i].parts.data();
}

void PacketSocket::bind(unsigned index)
{
    bind_socket(sender_.get(), index, 0);
    bind_socket(receiver_.get(), index, ETH_P_ALL);
    packet_mreq membership{};
    membership.mr_ifindex = static_cast<int>(index);
    membership.mr_type = PACKET_MR_PROMISC;
    if (setsockopt(receiver_.get(), SOL_PACKET, PACKET_ADD_MEMBERSHIP, &membership, sizeof membership) != 0)
        fail("cannot listen to frames for other stations");
}

std::size_t PacketSocket::buffer_size() const
{
    int size = 0;
    socklen_t size_of_size = sizeof size;
    getsockopt(receiver_.get(), SOL_SOCKET, SO_RCVBUF, &size, &size_of_size);
    return (ring_ ? ring_->size() : 0) + static_cast<std::size_t>(size);
}

// ---- Sending --------------------------------------------------------------------------------------

void PacketSocket::queue(const ReceivedFrame &frame, const Header &header, const std::optional<Tag> &tag)
{
    if (queued_ == batch)
        send();
    Outgoing &outgoing = outgoing_[queued_++];
    if (tag == header.tag) { // as it came, in one part
        outgoing.parts[0] = {const_cast<std::uint8_t *>(frame.bytes.data()) - sizeof(Unfinished), // sendmmsg only reads
                             sizeof(Unfinished) + frame.bytes.size()};
        messages_[queued_ - 1].msg_hdr.msg_iovlen = 1;
        return;
    }
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
                      iovec{const_cast<std::uint8_t *>(rest.data()), rest.size()},
                      iovec{const_cast<std::uint8_t *>(padding.data()), missing}};
    messages_[queued_ - 1].msg_hdr.msg_iovlen = missing != 0 ? 3 : 2;
}

void PacketSocket::send()
{
    for (std::size_t done = 0; done < queued_;) {
        const int sent = sendmmsg(sender_.get(), &messages_[done], static_cast<unsigned>(queued_ - done), MSG_DONTWAIT);
        if (sent < 0 && errno == EINTR)
            continue;
        counters_.sent += sent > 0 ? static_cast<std::uint64_t>(sent) : 0;
        counters_.refused += sent > 0 ? 0 : 1;
        done += sent > 0 ? static_cast<std::size_t>(sent) : 1;
    }
    queued_ = 0;
}

} // namespace sim
