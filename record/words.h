/// Calls of the SDK's services in words: what the stand-in's journal and recordings say about a call.
#ifndef KYBRIDGE_RECORD_WORDS_H
#define KYBRIDGE_RECORD_WORDS_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "kybridge/ky_sdk.h"

namespace record {

/// One call of a service.
struct ServiceCall {
    std::string_view service; ///< its name
    /// The numbers passed, in order, the state of rstp_port_state_set among them; addresses are left out.
    std::span<const std::uint64_t> arguments;
    std::span<const std::uint8_t> sent;     ///< bytes of the record (or entries) as the module passed it
    std::span<const std::uint8_t> returned; ///< the same bytes after the call
    /// What was written through a plain out-argument (swid, mode, state); for memory that was given back, its bytes.
    std::uint64_t result = 0;
    ky_status_t status = 0; ///< what was answered
    bool planned = false;   ///< answered by a planned fault: nothing was done
};

/// The call in words, decoded: "acl_rules_set SET region 1 offset 3: port 0x00010001 vlan 100 -> vlan 1, don't learn".
/// A status that is not 0 follows, "-> 5", and for a planned fault "(planned fault)".
std::string in_words(const ServiceCall &call);

std::string command(std::uint64_t cmd);      ///< "ADD"
std::string port(std::uint64_t log_port);    ///< "port 0x00010001"
std::string egress_mode(std::uint64_t mode); ///< "tagged"
std::string rule(std::uint32_t key_log_port, std::uint32_t log_port_mask, std::uint16_t key_vlan,
                 std::uint16_t new_vlan, bool dont_learn); ///< "port 0x00010001 vlan 100 -> vlan 1, learn"

} // namespace record

#endif
