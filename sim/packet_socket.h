/// A packet socket on a network interface: frames come and go in batches, as the kernel has them.
///
/// A network stack leaves work to the network card: it hands over TCP segments and UDP datagrams of up to 64 KB to be
/// cut, and checksums to be finished. Between interfaces of one machine no card ever does it. The kernel's virtio-net
/// header tells exactly what is unfinished and takes it unfinished again, so the work is left to whoever needs it
/// done: the far end, or the kernel in front of a card that cannot.
#ifndef KYBRIDGE_SIM_PACKET_SOCKET_H
#define KYBRIDGE_SIM_PACKET_SOCKET_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <vector>

#include <sys/socket.h>

#include "sim/descriptor.h"
#include "sim/frame.h"

namespace sim {

class SocketError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What an interface did; the switch counts by port what became of the frames.
struct InterfaceCounters {
    std::uint64_t received = 0;   ///< frames as the interface handed them over
    std::uint64_t unreadable = 0; ///< of them, dropped: too long, or unfinished in a way that the kernel cannot tell
    std::uint64_t missed = 0;     ///< dropped by the kernel: the buffer was full
    std::uint64_t sent = 0;
    std::uint64_t refused = 0; ///< not sent: the interface is down or busy, or its MTU is too small for the frame
};

/// What of a frame is unfinished: the kernel's struct virtio_net_hdr, whose header C++ cannot read.
struct Unfinished {
    static constexpr std::uint8_t needs_checksum = 1; ///< of flags
    static constexpr std::uint8_t whole = 0;          ///< of gso_type: not to be cut
    static constexpr std::uint8_t udp = 5;            ///< of gso_type: to be cut into datagrams
    static constexpr std::uint8_t ecn = 0x80;         ///< of gso_type, beside TCP's

    std::uint8_t flags = 0;
    std::uint8_t gso_type = whole;
    std::uint16_t hdr_len = 0;     ///< bytes of all headers, of a frame that is to be cut
    std::uint16_t gso_size = 0;    ///< payload bytes of each piece
    std::uint16_t csum_start = 0;  ///< first byte that the checksum is about
    std::uint16_t csum_offset = 0; ///< place of the checksum behind that

    bool is_segmented() const { return gso_type != whole; }
};
static_assert(sizeof(Unfinished) == 10);

struct ReceivedFrame {
    BytesView bytes; ///< with its tag
    Unfinished unfinished{};
    std::size_t wire_size = 0; ///< bytes of the longest piece that a wire would carry
};

/// Room for the frames of one turn, shared by the sockets.
class ReceiveBuffers {
public:
    ReceiveBuffers();
    ReceiveBuffers(const ReceiveBuffers &) = delete;
    ReceiveBuffers &operator=(const ReceiveBuffers &) = delete;

private:
    friend class PacketSocket;
    static constexpr std::size_t count = 64;

    struct Slot {
        std::uint8_t *memory; ///< what is unfinished, addresses, a gap where a tag fits, and what follows them
        std::array<iovec, 2> parts{};
        alignas(cmsghdr) std::array<std::uint8_t, 64> control{};
    };
    bool read(std::size_t index, ReceivedFrame &frame);

    std::unique_ptr<std::uint8_t[]> memory_; // NOLINT(modernize-avoid-c-arrays): 4 MB that nobody need fill with zeros
    std::array<Slot, count> slots_{};
    std::array<mmsghdr, count> messages_{};
    std::vector<ReceivedFrame> frames_; ///< of the last turn
};

class PacketSocket {
public:
    /// Opens a socket that is not bound to an interface yet. Throws SocketError.
    /// @param buffer_size bytes of the kernel's memory that frames may take until they are read
    explicit PacketSocket(std::size_t buffer_size);

    /// Receives from an interface from here on. A socket can be bound again. Throws SocketError.
    /// @param index the kernel's number of the interface
    void bind(unsigned index);

    /// Takes the frames that have arrived, up to a turn's. @return valid until the next turn of any socket
    std::span<const ReceivedFrame> receive(ReceiveBuffers &buffers);

    /// Puts a frame into the batch that is sent next; its bytes must stay until then.
    /// @param header the frame's own @param tag with which it leaves
    void queue(const ReceivedFrame &frame, const Header &header, const std::optional<Tag> &tag);
    bool has_queued() const { return queued_ != 0; }
    void send();

    int descriptor() const { return socket_.get(); }
    std::size_t buffer_size() const; ///< that the kernel allows
    std::uint64_t count_missed();    ///< brings the counter up to date; @return frames missed since the last time
    const InterfaceCounters &counters() const { return counters_; }

private:
    static constexpr std::size_t batch = 64; ///< frames sent at once

    struct Outgoing {
        std::array<std::uint8_t, sizeof(Unfinished) + 16> head{}; ///< what is unfinished, addresses and tag
        std::array<iovec, 3> parts{};                             ///< head, the frame's rest, padding
    };

    Descriptor socket_;
    InterfaceCounters counters_;
    std::size_t queued_ = 0;
    std::array<Outgoing, batch> outgoing_{};
    std::array<mmsghdr, batch> messages_{};
};

} // namespace sim

#endif
