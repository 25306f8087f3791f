/// Sends Ethernet frames on an interface as fast as the kernel takes them, or at a rate.
///
///     kybridge_sender INTERFACE DESTINATION SOURCE VLAN SIZE RATE COUNT
///
/// VLAN 0: untagged; SIZE in bytes without the check sequence; RATE in frames a second, 0: as fast as it goes.
/// Prints how many frames the kernel took, and the seconds that it took.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <thread>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>

#include "sim/descriptor.h"
#include "sim/frame.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t batch = 32; ///< frames handed over at once

int open_interface(const char *interface)
{
    const int opened = socket(AF_PACKET, SOCK_RAW, 0);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface));
    const int on = 1;
    setsockopt(opened, SOL_PACKET, PACKET_QDISC_BYPASS, &on, sizeof on);
    if (bind(opened, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return -1;
    return opened;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 8) {
        fmt::print(stderr, "usage: {} INTERFACE DESTINATION SOURCE VLAN SIZE RATE COUNT\n", argv[0]);
        return 2;
    }
    const auto destination = sim::parse_mac(argv[2]), source = sim::parse_mac(argv[3]);
    const auto vlan = static_cast<std::uint16_t>(std::atoi(argv[4]));
    const std::size_t size = std::strtoull(argv[5], nullptr, 10);
    const double rate = std::atof(argv[6]);
    const std::uint64_t count = std::strtoull(argv[7], nullptr, 10);
    const sim::Descriptor interface(open_interface(argv[1]));
    if (!destination || !source || interface.get() < 0) {
        fmt::print(stderr, "{}: no address, or no such interface\n", argv[0]);
        return 2;
    }

    sim::Header header{*destination, *source, std::nullopt, 0x88B5}; // of local experiments
    if (vlan != 0)
        header.tag = sim::Tag{.vid = vlan};
    sim::Bytes frame = sim::build(header, {});
    frame.resize(size);
    iovec bytes{frame.data(), frame.size()};
    std::array<mmsghdr, batch> messages{};
    for (mmsghdr &message : messages) {
        message.msg_hdr.msg_iov = &bytes;
        message.msg_hdr.msg_iovlen = 1;
    }

    const Clock::time_point begin = Clock::now();
    std::uint64_t taken = 0;
    for (std::uint64_t offered = 0; offered < count;) {
        std::uint64_t due = count;
        if (rate > 0)
            due = std::min(
                count, static_cast<std::uint64_t>(std::chrono::duration<double>(Clock::now() - begin).count() * rate));
        if (due <= offered) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
            continue;
        }
        const auto now = static_cast<unsigned>(std::min(batch, due - offered));
        const int sent = sendmmsg(interface.get(), messages.data(), now, 0);
        taken += static_cast<std::uint64_t>(std::max(0, sent));
        offered += sent > 0 ? static_cast<std::uint64_t>(sent) : 1; // one that was refused is lost
    }
    fmt::print("{} {:.6f}\n", taken, std::chrono::duration<double>(Clock::now() - begin).count());
}
