/// Ports of the switch on network interfaces: what arrives at an interface goes into its port, and what leaves the
/// port is sent on the interface.
///
/// Frames that a sender on this machine left unfinished (sim/packet_socket.h) are forwarded as they are, and count
/// as one frame, so neither side's offloads need be turned off.
#ifndef KYBRIDGE_SIM_LIVE_H
#define KYBRIDGE_SIM_LIVE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <unordered_map>
#include <vector>

#include "sim/descriptor.h"
#include "sim/packet_socket.h"
#include "sim/switch.h"
#include "sim/trace.h"

namespace sim {

class Live {
public:
    /// Room in bytes for a burst of 16,384 frames of 1,518 bytes, each with what the kernel spends on it.
    static constexpr std::size_t buffer_size_default = 64 << 20;

    enum class State : std::uint8_t {
        up,
        no_carrier, ///< nothing at the other end, by the interface's operational state
        down,       ///< set down
        gone
    };

    struct Interface {
        std::uint32_t port = 0; ///< logical port
        std::string name;
        State state = State::up; ///< the port's link is up with its interface only
        InterfaceCounters counters{};
    };

    /// @param notice takes a line for the person in front, without line end, when an interface goes down, up
    ///               or away, or misses frames
    /// @param buffer_size bytes of the kernel's memory that each interface's frames may take until they are read
    Live(Switch &forwarder, std::function<void(const std::string &)> notice, PortNames names = port_number,
         std::size_t buffer_size = buffer_size_default);
    ~Live();
    Live(const Live &) = delete;
    Live &operator=(const Live &) = delete;

    /// Attaches a port to an interface. It need not be up yet, and one that is made again under its name is attached
    /// again. Throws std::runtime_error when there is no such Ethernet interface, it cannot be listened to, or one of
    /// the two is attached already. The device need not know the port yet.
    void attach(std::uint32_t port, const std::string &interface);

    /// Forwards until told to stop.
    /// @param stop_fd readable (or closed at its other end): run returns; nothing is read from it
    /// @param control_fd readable: on_control is called; -1: none. An epoll descriptor serves for several.
    /// @param on_control false: do not watch control_fd any longer
    /// Throws std::runtime_error when waiting itself fails.
    void run(int stop_fd, int control_fd = -1, const std::function<bool()> &on_control = {});

    std::vector<Interface> interfaces(); ///< in the order of attaching

private:
    using Clock = std::chrono::steady_clock;
    struct Attachment;

    void wait_for(int descriptor, void *source);
    void read(Attachment &from);
    void follow_links();
    static State state_of(const Attachment &attachment);
    void set_state(Attachment &attachment, State state);
    void tell_missed();

    Switch &switch_;
    std::function<void(const std::string &)> notice_;
    PortNames names_;
    std::size_t buffer_size_;
    Descriptor events_;      ///< readable: something to do
    Descriptor link_events_; ///< readable: an interface of this machine has changed
    std::list<Attachment> attachments_;
    std::unordered_map<std::uint32_t, Attachment *> by_port_; ///< by logical port
    std::vector<Attachment *> queued_;                        ///< with frames to send
    ReceiveBuffers buffers_;
};

} // namespace sim

#endif
