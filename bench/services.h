/// What the benchmarks set up in the services that do nothing.
#ifndef KYBRIDGE_BENCH_SERVICES_H
#define KYBRIDGE_BENCH_SERVICES_H

#include <cstdint>

#include "kybridge/ky_sdk.h"

namespace bench {

/// Where bridge_port_set passes its call on to.
extern ky_status_t (*bridge_port_set_target)(ky_access_cmd_t, std::uint16_t, std::uint32_t, std::uint16_t,
                                             std::uint32_t, std::uint32_t);
/// The callback that the module registered for port events.
extern ky_adviser_callback_t port_event;

/// A SWID validation that serves every SWID.
ky_status_t validate_swid(unsigned int swid);

} // namespace bench

#endif
