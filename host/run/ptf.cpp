#include "host/run/ptf.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>

namespace host {

namespace {

enum Kind : std::int32_t { port_added, port_removed, link_set, frame_in, frame_out, info_request, info_answer };
enum Info : std::int32_t { hardware_address, counters };
enum Status : std::int32_t { success, not_supported };
constexpr std::int32_t link_up = 0;

constexpr std::size_t head_size = 3 * sizeof(std::int32_t);
constexpr std::size_t messages_at_once = 64; ///< about a millisecond's work
/// The longest message taken. A longer frame than the switch takes is told as what it is, dropped as oversized.
constexpr int message_size_max = 1 << 16;
constexpr int send_buffer_size = 16 << 20; ///< in bytes: a burst that the tests have not read yet

void append(sim::Bytes &bytes, std::uint32_t number)
{
    for (unsigned shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<std::uint8_t>(number >> shift));
}

std::int32_t read_number(sim::BytesView bytes)
{
    return static_cast<std::int32_t>(std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 |
                                     std::uint32_t{bytes[2]} << 16 | std::uint32_t{bytes[3]} << 24);
}

/// @throws std::runtime_error with nanomsg's reason, when one of its calls answered with -1
int checked(int answer, const std::string &address)
{
    if (answer < 0)
        throw std::runtime_error(fmt::format("--ptf {}: {}", address, nn_strerror(nn_errno())));
    return answer;
}

/// A message that cannot be carried out. The text says what is wrong and what would be right.
struct WrongMessage {
    std::string text;
};

} // namespace

struct PtfSocket::Message {
    std::int32_t kind;
    std::int32_t port;
    std::int32_t more;
    sim::BytesView bytes;

    static Message read(sim::BytesView whole)
    {
        if (whole.size() < head_size)
            throw WrongMessage{fmt::format("{} bytes; expected {} or more", whole.size(), head_size)};
        return {read_number(whole), read_number(whole.subspan(4)), read_number(whole.subspan(8)),
                whole.subspan(head_size)};
    }
};

PtfSocket::PtfSocket(Host &host, const std::string &address, std::function<void(const std::string &)> notice)
    : host_(host), notice_(std::move(notice)), socket_(checked(nn_socket(AF_SP, NN_PAIR), address))
{
    try {
        checked(nn_setsockopt(socket_, NN_SOL_SOCKET, NN_SNDBUF, &send_buffer_size, sizeof send_buffer_size), address);
        checked(nn_setsockopt(socket_, NN_SOL_SOCKET, NN_RCVMAXSIZE, &message_size_max, sizeof message_size_max),
                address);
        checked(nn_bind(socket_, address.c_str()), address);
        std::size_t size = sizeof readable_;
        checked(nn_getsockopt(socket_, NN_SOL_SOCKET, NN_RCVFD, &readable_, &size), address);
    } catch (...) {
        nn_close(socket_);
        throw;
    }
}

PtfSocket::~PtfSocket()
{
    nn_close(socket_);
}

void PtfSocket::serve()
{
    for (std::size_t taken = 0; taken < messages_at_once; ++taken) {
        void *memory = nullptr;
        const int size = nn_recv(socket_, &memory, NN_MSG, NN_DONTWAIT);
        if (size < 0)
            return;
        const sim::BytesView whole(static_cast<const std::uint8_t *>(memory), static_cast<std::size_t>(size));
        try {
            take(Message::read(whole));
        } catch (const WrongMessage &wrong) {
            notice_(fmt::format("ptf: a message was ignored: {}", wrong.text));
        }
        nn_freemsg(memory);
    }
}

void PtfSocket::take(const Message &message)
{
    switch (message.kind) {
    case port_added:
        return set_link(message, true);
    case port_removed:
        return set_link(message, false);
    case link_set:
        return set_link(message, message.more == link_up);
    case frame_in:
        return forward(message);
    case info_request:
        return inform(message);
    default:
        throw WrongMessage{fmt::format("kind {}; expected {} to {} or {}", message.kind, static_cast<int>(port_added),
                                       static_cast<int>(frame_in), static_cast<int>(info_request))};
    }
}

void PtfSocket::set_link(const Message &message, bool up)
{
    host_.software_switch.set_link(log_port(message.port), up);
}

void PtfSocket::forward(const Message &message)
{
    const std::uint32_t from = log_port(message.port);
    if (static_cast<std::uint32_t>(message.more) != message.bytes.size())
        throw WrongMessage{fmt::format("a frame of {} bytes said to have {}", message.bytes.size(), message.more)};
    const sim::Outcome outcome = host_.software_switch.forward(from, message.bytes);
    for (const sim::Transmission &sent : outcome.transmissions)
        if (const std::optional<std::int32_t> port = port_of(sent.port))
            send({frame_out, *port, static_cast<std::int32_t>(sent.frame.size()), sent.frame});
}

void PtfSocket::inform(const Message &message)
{
    const std::uint32_t asked = log_port(message.port);
    sim::Bytes answer;
    if (message.more == hardware_address) {
        const sim::Mac address = station_at(asked);
        append(answer, success);
        answer.insert(answer.end(), address.bytes.begin(), address.bytes.end());
    } else if (message.more == counters) {
        const auto counted = host_.software_switch.counters().find(asked);
        const bool is_idle = counted == host_.software_switch.counters().end();
        append(answer, success);
        append(answer, is_idle ? 0 : static_cast<std::uint32_t>(counted->second.in.frames));
        append(answer, is_idle ? 0 : static_cast<std::uint32_t>(counted->second.out.frames));
    } else {
        append(answer, not_supported);
    }
    send({info_answer, message.port, message.more, answer});
}

/// Sends without waiting: as at the end of a cable, what nobody takes is lost. The first loss is told.
void PtfSocket::send(Message message)
{
    sim::Bytes whole;
    for (const std::int32_t number : {message.kind, message.port, message.more})
        append(whole, static_cast<std::uint32_t>(number));
    whole.insert(whole.end(), message.bytes.begin(), message.bytes.end());
    const bool was_losing = std::exchange(is_losing_, nn_send(socket_, whole.data(), whole.size(), NN_DONTWAIT) < 0);
    if (is_losing_ && !was_losing)
        notice_("ptf: frames are lost, as nobody takes them");
}

std::uint32_t PtfSocket::log_port(std::int32_t port) const
{
    if (port < 0 || static_cast<std::size_t>(port) >= host_.announced.size())
        throw WrongMessage{
            fmt::format("port {}; {} ports were announced, counted from 0", port, host_.announced.size())};
    return host_.announced[static_cast<std::size_t>(port)];
}

/// None: it was added without being announced.
std::optional<std::int32_t> PtfSocket::port_of(std::uint32_t log_port) const
{
    const auto found = std::ranges::find(host_.announced, log_port);
    if (found == host_.announced.end())
        return std::nullopt;
    return static_cast<std::int32_t>(found - host_.announced.begin());
}

} // namespace host
