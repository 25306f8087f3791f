/// A frame's way through the switch, decision by decision, as a person reads it:
///
///     north  02:00:00:00:00:0a > ff:ff:ff:ff:ff:ff, vlan 100 pcp 5, type 0x0800, 64 bytes
///       port     forwarding
///       vlan     100, from the tag
///       ingress  rule 1: vlan 100 -> 1
///       learn    02:00:00:00:00:0a in vlan 1 at north
///       lookup   broadcast, flooded in vlan 1
///       > east   egress rule 1: vlan 1 -> 100, sent tagged: vlan 100 pcp 5, 64 bytes
///       > south  egress rule 1: vlan 1 -> 100, sent untagged, 60 bytes
///       x west   dropped: the port is discarding
///       sent at 2 ports
#ifndef KYBRIDGE_SIM_TRACE_H
#define KYBRIDGE_SIM_TRACE_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "sim/switch.h"

namespace sim {

/// Gives a logical port the name that the reader knows it by.
using PortNames = std::function<std::string(std::uint32_t)>;

/// Logical ports as numbers: "0x00010001".
std::string port_number(std::uint32_t port);

std::string trace(const Outcome &outcome, const PortNames &names = port_number);

/// The reason in words, for example "the port is discarding".
std::string_view text(Drop drop);

/// The reason as a column of counters names it, for example "discarding".
std::string_view name(Drop drop);

} // namespace sim

#endif
