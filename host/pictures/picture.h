/// Pictures of the switch, in Graphviz's language: ports on the left and on the right with a row for each of their
/// VLANs, and between them what connects those, bridges and plain VLANs.
#ifndef KYBRIDGE_HOST_PICTURE_H
#define KYBRIDGE_HOST_PICTURE_H

#include <string>

#include "host/host.h"

namespace host {

/// What there is: ports with link and RSTP state, virtual ports with VLAN, tagging and ingress rule, bridges with
/// internal VLAN and egress rule, and how many share it. An empty switch is an empty picture.
/// @param frame the way of a frame to show on it; NULL: none
std::string picture(const Host &host, const sim::Outcome *frame = nullptr);

} // namespace host

#endif
