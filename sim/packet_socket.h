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
    BytesView bytes; ///< with its tag; in front of them stands what is unfinished, as it is sent
    Unfinished unfinished{};
    std::size_t wire_size = 0; ///< bytes of the longest piece that a wire would carry
};

/// Room for the frames of one turn that are too long for a ring's slots, shared by the sockets.
class ReceiveBuffers {
public:
    ReceiveBuffers();

private:
    friend class PacketSocket;
    std::unique_ptr<std::uint8_t[]> memory_; // NOLINT(modernize-avoid-c-arrays): 4 MB that nobody need fill with zeros
    std::vector<ReceivedFrame> frames_;      ///< of the last turn
};

/// Slots in memory that is shared with the kernel, which puts each frame into one on the processor where it arrives.
class ReceiveRing {
public:
    /// @param socket the packet socket whose frames go into it @param size in bytes, rounded up. Throws SocketError.
    ReceiveRing(int socket, std::size_t size);
    ~ReceiveRing();
    ReceiveRing(const ReceiveRing &) = delete;
    ReceiveRing &operator=(const ReceiveRing &) = delete;

    bool has_frame() const;
    std::uint8_t *take(); ///< the slot of the next frame, which there must be
    void give_back();     ///< all slots that were taken
    std::size_t size() const;

private:
    std::uint8_t *slot(std::size_t index) const;
    std::size_t after(std::size_t index) const { return index + 1 == slots_ ? 0 : index + 1; }

    int socket_;
    std::size_t slots_;
    std::uint8_t *memory_ = nullptr;
    std::size_t next_ = 0;  ///< to take
    std::size_t taken_ = 0; ///< first that was not given back
};

class PacketSocket {
public:
    /// Opens a socket that is not bound to an interface yet. Throws SocketError.
    /// @param buffer_size bytes of the kernel's memory that frames may take until they are read: half is the ring's
    ///                    from now on, half for frames that are too long for its slots
    explicit PacketSocket(std::size_t buffer_size);

    /// Receives from an interface from here on. A socket can be bound again. Throws SocketError.
    /// @param index the kernel's number of the interface
    void bind(unsigned index);

    /// Takes the frames that have arrived, up to a turn's. @return valid until the turn ends
    std::span<const ReceivedFrame> receive(ReceiveBuffers &buffers);
    void end_turn();

    /// Puts a frame into the batch that is sent next; its bytes must stay until then.
    /// @param header the frame's own @param tag with which it leaves
    void queue(const ReceivedFrame &frame, const Header &header, const std::optional<Tag> &tag);
    bool has_queued() const { return queued_ != 0; }
    void send();

    int descriptor() const { return receiver_.get(); } ///< readable: frames to receive
    std::size_t buffer_size() const;                   ///< that the kernel allows
    std::uint64_t count_missed(); ///< brings the counter up to date; @return frames missed since the last time

    /// A frame that the virtio-net header cannot describe, such as a long SCTP packet, stops the ring of some kernels
    /// for good. count_missed notices: frames are dropped although the ring is empty, and none came in between.
    bool is_ring_stuck() const { return is_ring_stuck_; }
    void leave_ring(); ///< frames are read one by one from here on

    const InterfaceCounters &counters() const { return counters_; }

private:
    static constexpr std::size_t batch = 64; ///< frames sent at once

    struct Outgoing {
        std::array<std::uint8_t, sizeof(Unfinished) + 16> head{}; ///< what is unfinished, addresses and tag
        std::array<iovec, 3> parts{};                             ///< head, the frame's rest, padding
    };

    Descriptor receiver_;
    Descriptor sender_; ///< of its own: nobody waits for it, so the kernel need not tell of each frame that has left
    std::optional<ReceiveRing> ring_;
    bool is_ring_stuck_ = false;
    InterfaceCounters counters_;
    std::uint64_t taken_since_count_ = 0; ///< frames, since what was missed was last counted
    std::uint64_t missed_long_ = 0;       ///< of them: too long for their slots, when there was no other room
    std::size_t queued_ = 0;
    std::array<Outgoing, batch> outgoing_{};
    std::array<mmsghdr, batch> messages_{};
};

} // namespace sim

#endif
