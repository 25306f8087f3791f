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
#include <net/if_arp.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::seconds look_interval = 1s;         ///< between looks at what was missed
constexpr std::chrono::seconds missed_line_interval = 10s; ///< at least, between two lines on one interface

[[noreturn]] void fail(const std::string &interface, const std::string &reason)
{
    throw std::runtime_error(fmt::format("cannot attach to interface {}: {}", interface, reason));
}

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

/// Asks the kernel about an interface. @return false: there is none of this name
bool ask(int socket, unsigned long question, const std::string &name, ifreq &answer)
{
    answer = {};
    name.copy(answer.ifr_name, IFNAMSIZ - 1);
    return ioctl(socket, question, &answer) == 0;
}

/// What has become of an interface, for a line that ends with it.
const char *change(Live::State before, Live::State after)
{
    switch (after) {
    case Live::State::up:
        return before == Live::State::gone ? "is there again" : "came up";
    case Live::State::no_carrier:
        return before == Live::State::gone ? "is there again, without a carrier" : "has no carrier";
    case Live::State::down:
        return before == Live::State::gone ? "is there again, but down" : "went down";
    case Live::State::gone:
        return "went away";
    }
    return "";
}

} // namespace

struct Live::Attachment {
    Attachment(std::uint32_t port, std::string name, std::size_t buffer_size) : interface {
        .port = port, .name = std::move(name)
    }, socket(buffer_size) {}

    Interface interface;
    PacketSocket socket;
    unsigned index = 0;              ///< the kernel's number of the interface, which no later one of the same name has
    std::uint64_t missed_untold = 0; ///< frames
    Clock::time_point told_missed{}; ///< when a line last told of missed frames
};

Live::Live(Switch &forwarder, std::function<void(const std::string &)> notice, PortNames names, std::size_t buffer_size)
    : switch_(forwarder), notice_(std::move(notice)), names_(std::move(names)), buffer_size_(buffer_size),
      events_(epoll_create1(EPOLL_CLOEXEC)), link_events_(open_link_events())
{
    wait_for(link_events_.get(), &link_events_);
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
    try {
        std::list<Attachment> added; // taken over when all has gone well
        Attachment &attachment = added.emplace_back(port, interface, buffer_size_);
        ifreq answer{};
        if (interface.size() >= IFNAMSIZ || !ask(attachment.socket.descriptor(), SIOCGIFHWADDR, interface, answer))
            fail(interface, "there is no such interface");
        if (answer.ifr_hwaddr.sa_family != ARPHRD_ETHER && answer.ifr_hwaddr.sa_family != ARPHRD_LOOPBACK)
            fail(interface, "it is no Ethernet interface");
        attachment.index = if_nametoindex(interface.c_str());
        attachment.socket.bind(attachment.index);
        wait_for(attachment.socket.descriptor(), &attachment);
        if (const std::size_t allowed = attachment.socket.buffer_size(); allowed < buffer_size_)
            notice_(fmt::format("interface {}: the kernel allows a buffer of {} KB only, {} KB were wanted", interface,
                                allowed >> 10, buffer_size_ >> 10));
        attachments_.splice(attachments_.end(), added);
        by_port_[port] = &attachment;
        set_state(attachment, state_of(attachment));
    } catch (const SocketError &error) {
        fail(interface, error.what());
    }
}

void Live::wait_for(int descriptor, void *source)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = source;
    if (epoll_ctl(events_.get(), EPOLL_CTL_ADD, descriptor, &event) != 0)
        throw std::runtime_error(fmt::format("cannot wait for frames: {}", std::strerror(errno)));
}

void Live::run(int stop_fd, int control_fd, const std::function<bool()> &on_control)
{
    std::array<epoll_event, 64> events{};
    wait_for(stop_fd, &stop_fd);
    if (control_fd >= 0)
        wait_for(control_fd, &control_fd);
    Clock::time_point now = Clock::now();
    for (Clock::time_point next_look = now + look_interval;;) {
        const int count = epoll_wait(events_.get(), events.data(), static_cast<int>(events.size()),
                                     static_cast<int>(std::chrono::milliseconds(look_interval).count()));
        if (count < 0 && errno != EINTR)
            throw std::runtime_error(fmt::format("cannot wait for frames: {}", std::strerror(errno)));
        const Clock::time_point before = std::exchange(now, Clock::now());
        switch_.fdb().advance(now - before);

        for (int i = 0; i < count; ++i) {
            void *const source = events[static_cast<std::size_t>(i)].data.ptr;
            if (source == &stop_fd)
                return;
            if (source == &link_events_)
                follow_links();
            else if (source != &control_fd)
                read(*static_cast<Attachment *>(source));
            else if (!on_control())
                epoll_ctl(events_.get(), EPOLL_CTL_DEL, control_fd, nullptr);
        }
        if (now >= next_look) {
            next_look = now + look_interval;
            tell_missed();
        }
    }
}

/// Forwards a turn's frames of one interface, so that those of others have theirs.
void Live::read(Attachment &from)
{
    for (const ReceivedFrame &frame : from.socket.receive(buffers_)) {
        const Outcome &outcome = switch_.decide(from.interface.port, frame.bytes, frame.wire_size);
        for (const Exit &exit : outcome.exits) {
            const auto to = exit.drop == Drop::none ? by_port_.find(exit.port) : by_port_.end();
            if (to == by_port_.end())
                continue;
            if (!to->second->socket.has_queued())
                queued_.push_back(to->second);
            to->second->socket.queue(frame, *outcome.header, exit.tag);
        }
    }
    for (Attachment *to : queued_)
        to->socket.send();
    queued_.clear();
    from.socket.end_turn();
}

/// An event only says that something has changed, and some may have been lost: every interface is asked.
void Live::follow_links()
{
    std::array<char, 8192> event{};
    while (recv(link_events_.get(), event.data(), event.size(), 0) > 0 || errno == ENOBUFS || errno == EINTR) {
    }
    for (Attachment &attachment : attachments_) {
        std::array<char, IF_NAMESIZE> name{};
        if (if_indextoname(attachment.index, name.data()) == nullptr)
            set_state(attachment, State::gone);
        if (attachment.interface.state == State::gone) {
            attachment.index = if_nametoindex(attachment.interface.name.c_str());
            if (attachment.index == 0)
                continue;
            try {
                attachment.socket.bind(attachment.index);
            } catch (const SocketError &error) {
                notice_(fmt::format("interface {} is there again, but {}", attachment.interface.name, error.what()));
                continue;
            }
        }
        set_state(attachment, state_of(attachment));
    }
}

Live::State Live::state_of(const Attachment &attachment)
{
    std::array<char, IF_NAMESIZE> name{}; // which may have changed
    ifreq answer{};
    if (if_indextoname(attachment.index, name.data()) == nullptr ||
        !ask(attachment.socket.descriptor(), SIOCGIFFLAGS, name.data(), answer))
        return State::gone;
    if ((answer.ifr_flags & IFF_UP) == 0)
        return State::down;
    return (answer.ifr_flags & IFF_RUNNING) != 0 ? State::up : State::no_carrier;
}

void Live::set_state(Attachment &attachment, State state)
{
    Interface &interface = attachment.interface;
    const State before = std::exchange(interface.state, state);
    const bool was_up = before == State::up, has_gone_or_come = (before == State::gone) != (state == State::gone);
    if (was_up == (state == State::up) && !has_gone_or_come)
        return;
    switch_.set_link(interface.port, state == State::up);
    notice_(fmt::format("port {} is {}: interface {} {}", names_(interface.port), state == State::up ? "up" : "down",
                        interface.name, change(before, state)));
}

void Live::tell_missed()
{
    for (Attachment &attachment : attachments_) {
        attachment.missed_untold += attachment.socket.count_missed();
        if (attachment.socket.is_ring_stuck()) {
            attachment.socket.leave_ring();
            notice_(
                fmt::format("interface {}: a frame has stopped the kernel's ring; they are read one by one from now on",
                            attachment.interface.name));
        }
        if (attachment.missed_untold == 0 || Clock::now() < attachment.told_missed + missed_line_interval)
            continue;
        notice_(fmt::format("interface {} missed {} frames: more came than its buffer of {} MB (--buffer) holds",
                            attachment.interface.name, std::exchange(attachment.missed_untold, 0),
                            attachment.socket.buffer_size() >> 20));
        attachment.told_missed = Clock::now();
    }
}

std::vector<Live::Interface> Live::interfaces()
{
    std::vector<Interface> list;
    for (Attachment &attachment : attachments_) {
        attachment.socket.count_missed();
        list.push_back(attachment.interface);
        list.back().counters = attachment.socket.counters();
    }
    return list;
}

} // namespace sim
