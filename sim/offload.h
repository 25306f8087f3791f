/// Frames as the wire would carry them, out of what a local sender hands to a virtual interface.
///
/// A network stack leaves work to the network card: it hands over TCP segments of up to 64 KB to be cut,
/// and TCP and UDP checksums to be finished. Between virtual interfaces of one machine (veth) no card
/// ever does it, and a capture shows the frames unfinished. A switch in between must do it, or receivers
/// drop what it forwards. Which frames are unfinished, the capture does not tell, but the frame does: an
/// unfinished checksum field holds the sum of the pseudo header, and a frame longer than the MTU was to
/// be cut. How a UDP datagram was to be cut it does not tell: that one stays whole.
#ifndef KYBRIDGE_SIM_OFFLOAD_H
#define KYBRIDGE_SIM_OFFLOAD_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "sim/frame.h"

namespace sim {

/// Finishes the checksum of an IPv4 or IPv6 TCP or UDP packet, and cuts a TCP segment that is longer
/// than the MTU. Anything else is left as it is.
/// @param frame is finished in place when it need not be cut
/// @param mtu most bytes of an IP packet
/// @param[out] cut the pieces of a frame that was cut; else empty
void finish_offload(std::span<std::uint8_t> frame, std::size_t mtu, std::vector<Bytes> &cut);

} // namespace sim

#endif
