#include "sim/live.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <pcap/pcap.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "sim/offload.h"

namespace sim {
namespace {

/// The longest IP packet in a tagged frame: a TCP segment that the sender left to be cut.
constexpr int capture_size = 65535 + static_cast<int>(frame_size_min + tag_size);
/// Room for about 500 frames: in immediate mode each takes a slot of the longest.
constexpr int buffer_size = 32 << 20;
/// Frames taken from one interface before the next one's turn: each may be cut into dozens, and their
/// answers must fit the other interfaces' buffers meanwhile.
constexpr int burst = 8;
constexpr std::size_t mtu_max = frame_size_max - frame_size_min - tag_size;

[[noreturn]] void fail(const std::string &interface, const std::string &reason)
{
    throw std::runtime_error(fmt::format("cannot attach to interface {}: {}", interface, reason));
}

PcapHandle open_interface(const std::string &name)
{
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    PcapHandle handle(pcap_create(name.c_str(), error.data()));
    if (handle == nullptr)
        fail(name, error.data());
    pcap_set_snaplen(handle.get(), capture_size);
    pcap_set_promisc(handle.get(), 1);
    pcap_set_immediate_mode(handle.get(), 1);
    pcap_set_buffer_size(handle.get(), buffer_size);

    const int status = pcap_activate(handle.get());
    if (status < 0) {
        const std::string reason = pcap_statustostr(status), detail = pcap_geterr(handle.get());
        fail(name, detail.empty() || detail == reason ? reason : fmt::format("{} ({})", reason, detail));
    }
    if (pcap_datalink(handle.get()) != DLT_EN10MB)
        fail(name, "it is no Ethernet interface");
    if (pcap_setdirection(handle.get(), PCAP_D_IN) != 0)
        fail(name, pcap_geterr(handle.get()));
    if (pcap_setnonblock(handle.get(), 1, error.data()) != 0)
        fail(name, error.data());
    return handle;
}

/// libpcap alone does not do: it misses a removal when it has looked between the interface's going down and away.
int open_link_events()
{
    const int events = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    if (events < 0 || bind(events, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        throw std::runtime_error(fmt::format("cannot watch the interfaces: {}", std::strerror(errno)));
    return events;
}

std::size_t read_mtu(pcap_t *handle, const std::string &name)
{
    ifreq request{};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    if (ioctl(pcap_fileno(handle), SIOCGIFMTU, &request) != 0)
        fail(name, std::strerror(errno));
    return static_cast<std::size_t>(request.ifr_mtu);
}

} // namespace

struct Live::Attachment {
    Interface interface;
    unsigned int index; ///< the kernel's number of the interface, which no later one of the same name has
    Live *live;
    PcapHandle handle; ///< empty when the interface went away
};

Live::Live(Switch &forwarder, std::function<void(const std::string &)> notice, PortNames names)
    : switch_(forwarder), notice_(std::move(notice)), names_(std::move(names)), link_events_(open_link_events()),
      mtu_(mtu_max)
{
}

Live::~Live() = default;

void Live::attach(std::uint32_t port, const std::string &interface)
{
    for (const Attachment &other : attachments_) {
        if (other.interface.port == port)
            fail(interface, fmt::format("port {} is attached to {}", names_(port), other.interface.name));
        if (other.interface.name == interface)
            fail(interface, fmt::format("it is attached to port {}", names_(other.interface.port)));
    }
    PcapHandle handle = open_interface(interface);
    const unsigned int index = if_nametoindex(interface.c_str());
    mtu_ = std::min(mtu_, read_mtu(handle.get(), interface));
    attachments_.push_back({{.port = port, .name = interface}, index, this, std::move(handle)});
}

void Live::run(int stop_fd, int control_fd, const std::function<bool()> &on_control)
{
    std::vector<pollfd> waiting;
    std::vector<Attachment *> owners; // of the descriptors behind the first three
    for (;;) {
        // poll skips a descriptor of -1
        waiting.assign({{stop_fd, POLLIN, 0}, {control_fd, POLLIN, 0}, {link_events_.get(), POLLIN, 0}});
        owners.clear();
        for (Attachment &attachment : attachments_) {
            if (attachment.handle == nullptr)
                continue;
            waiting.push_back({pcap_get_selectable_fd(attachment.handle.get()), POLLIN, 0});
            owners.push_back(&attachment);
        }

        if (poll(waiting.data(), waiting.size(), -1) < 0) {
            if (errno == EINTR)
                continue;
            throw std::runtime_error(fmt::format("cannot wait for frames: {}", std::strerror(errno)));
        }
        if (waiting[0].revents != 0)
            return;
        if (waiting[1].revents != 0 && !on_control())
            control_fd = -1;
        for (std::size_t i = 0; i < owners.size(); ++i) {
            if (waiting[i + 3].revents != 0 && owners[i]->handle != nullptr)
                read(*owners[i]);
        }
        if (waiting[2].revents != 0)
            follow_links();
    }
}

void Live::read(Attachment &from)
{
    if (pcap_dispatch(from.handle.get(), burst, on_frame, reinterpret_cast<u_char *>(&from)) >= 0)
        return;
    const std::string reason = pcap_geterr(from.handle.get());
    follow_links(); // which tells it best when the interface is gone
    set_state(from, State::gone, "failed: " + reason);
}

// NOLINTNEXTLINE(readability-non-const-parameter): pcap_handler
void Live::on_frame(unsigned char *attachment, const pcap_pkthdr *header, const unsigned char *bytes)
{
    auto &from = *reinterpret_cast<Attachment *>(attachment); // as given to pcap_dispatch
    ++from.interface.counters.received;
    if (header->caplen < header->len)
        ++from.interface.counters.truncated;
    else
        from.live->receive(from, {bytes, header->caplen});
}

void Live::receive(Attachment &from, BytesView frame)
{
    scratch_.assign(frame.begin(), frame.end());
    finish_offload(scratch_, mtu_, pieces_);
    if (pieces_.empty())
        return forward(from, scratch_);
    ++from.interface.counters.cut;
    for (const Bytes &piece : pieces_)
        forward(from, piece);
}

void Live::forward(Attachment &from, BytesView frame)
{
    const Outcome outcome = switch_.forward(from.interface.port, frame);
    for (const Transmission &sent : outcome.transmissions) {
        const auto to = std::find_if(attachments_.begin(), attachments_.end(), [&sent](const Attachment &attachment) {
            return attachment.interface.port == sent.port && attachment.handle != nullptr;
        });
        if (to == attachments_.end())
            continue;
        if (pcap_inject(to->handle.get(), sent.frame.data(), sent.frame.size()) < 0)
            ++to->interface.counters.refused;
        else
            ++to->interface.counters.sent;
    }
}

/// An event only says that something has changed, and some may have been lost: every interface is asked.
void Live::follow_links()
{
    std::array<char, 8192> event{};
    while (recv(link_events_.get(), event.data(), event.size(), 0) > 0 || errno == ENOBUFS || errno == EINTR) {
    }
    for (Attachment &attachment : attachments_) {
        ifreq request{};
        if (attachment.handle == nullptr)
            continue;
        if (if_indextoname(attachment.index, request.ifr_name) == nullptr ||
            ioctl(pcap_fileno(attachment.handle.get()), SIOCGIFFLAGS, &request) != 0)
            set_state(attachment, State::gone, "went away");
        else if ((request.ifr_flags & IFF_UP) != 0)
            set_state(attachment, State::up, "came up");
        else
            set_state(attachment, State::down, "went down");
    }
}

void Live::set_state(Attachment &attachment, State state, std::string_view reason)
{
    Interface &interface = attachment.interface;
    if (interface.state == state)
        return;
    interface.state = state;
    switch_.set_link(interface.port, state == State::up);
    notice_(fmt::format("port {} is {}: interface {} {}", names_(interface.port), state == State::up ? "up" : "down",
                        interface.name, reason));
    if (state == State::gone)
        attachment.handle.reset();
}

std::vector<Live::Interface> Live::interfaces() const
{
    std::vector<Interface> list;
    for (const Attachment &attachment : attachments_) {
        Interface &interface = list.emplace_back(attachment.interface);
        pcap_stat kernel{};
        if (attachment.handle != nullptr && pcap_stats(attachment.handle.get(), &kernel) == 0)
            interface.counters.missed = kernel.ps_drop;
    }
    return list;
}

} // namespace sim
