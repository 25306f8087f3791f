/// Ports of the switch on network interfaces, through libpcap: what arrives at an interface goes into its
/// port, and what leaves the port is sent on the interface.
///
/// Interfaces of this machine may hand over frames that are not finished for the wire (sim/offload.h):
/// they are finished first, TCP segments cut to the smallest MTU of the attached interfaces, so every
/// frame that the switch sees is one that a wire would carry. Neither side's offloads need be turned off.
#ifndef KYBRIDGE_SIM_LIVE_H
#define KYBRIDGE_SIM_LIVE_H

#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <vector>

#include "sim/descriptor.h"
#include "sim/pcap_handle.h"
#include "sim/switch.h"
#include "sim/trace.h"

struct pcap_pkthdr;

namespace sim {

/// What an interface did; the switch counts by port what became of the frames.
struct InterfaceCounters {
    std::uint64_t received = 0;  ///< frames as the interface handed them over
    std::uint64_t cut = 0;       ///< of them, TCP segments that were cut into several frames
    std::uint64_t truncated = 0; ///< of them, dropped: longer than the capture buffer's slots
    std::uint64_t missed = 0;    ///< dropped by the kernel: the buffer was full
    std::uint64_t sent = 0;
    std::uint64_t refused = 0; ///< not sent: the interface is down, or its MTU is too small for the frame
};

class Live {
public:
    enum class State : std::uint8_t { up, down, gone };

    struct Interface {
        std::uint32_t port = 0; ///< logical port
        std::string name;
        State state = State::up; ///< the port's link is up with its interface only
        InterfaceCounters counters{};
    };

    /// @param notice takes a line for the person in front, without line end, when an interface goes down, up
    ///               or away
    Live(Switch &forwarder, std::function<void(const std::string &)> notice, PortNames names = port_number);
    ~Live();
    Live(const Live &) = delete;
    Live &operator=(const Live &) = delete;

    /// Attaches a port to an interface that is up. Throws std::runtime_error when that cannot be done or
    /// one of the two is attached already. The device need not know the port yet.
    void attach(std::uint32_t port, const std::string &interface);

    /// Forwards until told to stop.
    /// @param stop_fd readable (or closed at its other end): run returns; nothing is read from it
    /// @param control_fd readable: on_control is called; -1: none. An epoll descriptor serves for several.
    /// @param on_control false: do not watch control_fd any longer
    /// Throws std::runtime_error when waiting itself fails.
    void run(int stop_fd, int control_fd = -1, const std::function<bool()> &on_control = {});

    std::vector<Interface> interfaces() const; ///< in the order of attaching

private:
    struct Attachment;

    static void on_frame(unsigned char *attachment, const pcap_pkthdr *header, const unsigned char *bytes);
    void receive(Attachment &from, BytesView frame);
    void forward(Attachment &from, BytesView frame);
    void read(Attachment &from);
    void follow_links();
    void set_state(Attachment &attachment, State state, std::string_view reason);

    Switch &switch_;
    std::function<void(const std::string &)> notice_;
    PortNames names_;
    Descriptor link_events_; ///< readable: an interface of this machine has changed
    std::list<Attachment> attachments_;
    std::size_t mtu_; ///< smallest of the attached interfaces, in bytes of an IP packet
    Bytes scratch_;   ///< the frame that is being finished
    std::vector<Bytes> pieces_;
};

} // namespace sim

#endif
