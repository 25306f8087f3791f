/// Calls into the module as data, so that enumerations, explored worlds, random runs and fuzzing share one
/// way to make, carry out and write down an operation.
#ifndef KYBRIDGE_CONFORM_MODEL_OPERATIONS_H
#define KYBRIDGE_CONFORM_MODEL_OPERATIONS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kybridge/ky_bridge.h"

namespace operations {

/// Everything that a host does with the module: first what can change its state, from `port_list` on only questions.
enum class Kind : std::uint8_t {
    start,
    stop,
    create,
    destroy,
    reference,
    unreference,
    add,
    remove,
    remove_port,
    announce,
    withdraw,
    clear,
    restore,
    learn,
    bind,
    unbind,
    port_list,
    int_vlan,
    int_vlan_list,
    int_vlan_owner,
    member_state,
    group,
    port_acls,
    learning,
    mode
};
inline constexpr unsigned kind_count = static_cast<unsigned>(Kind::mode) + 1;

/// One call. Members that its kind does not use are 0.
struct Operation {
    Kind kind{};
    std::uint32_t bridge = 0; ///< bridge identifier; start: number of bridges
    std::uint32_t port = 0;   ///< logical port; start: multiple-VLAN mode
    std::uint32_t vlan = 0;   ///< VLAN ID; start: number of virtual ports
    std::uint32_t value = 0;  ///< egress mode, direction, learning mode, SWID, SDK mode or a list's capacity
    bool flag = false;        ///< internal, or release
    bool null = false;        ///< its pointer is NULL
};

struct Answer {
    ky_status_t status = KY_STATUS_SUCCESS;
    /// What a success brought through pointers; of a list its length, then the entries.
    std::vector<std::uint32_t> values = {};
    bool operator==(const Answer &) const = default;
};

/// The arguments that operations are made from.
struct Domain {
    std::vector<std::uint32_t> bridges, ports, vlans;
    std::vector<std::uint32_t> extra_values; ///< beside those that mean something to an operation
    std::vector<Operation> starts;
    std::uint32_t max_log_ports = 0; ///< limit of the device
};

/// Every operation with every argument of the domain.
std::vector<Operation> every_operation(const Domain &domain);

/// A domain that is small enough for arguments to meet, with the borders of every range.
Domain border_domain();
/// Makes a choice: a number below its argument.
using Below = std::function<std::uint32_t(std::uint32_t)>;
/// Any operation that makes sense to a host: a start only where the module is stopped, and much that comes and little
/// that goes.
Operation any_operation(const Domain &domain, const Below &below);

/// Delivers a port event to the module. @param event_type ky_adviser_event @param log_port the port
/// @param swid of an announcement
using Deliver = std::function<ky_status_t(std::uint32_t event_type, std::uint32_t log_port, std::uint8_t swid)>;
/// Calls the module of the process.
Answer carry_out(const Operation &operation, const Deliver &deliver);

/// An operation as a command for kybridge-host.
std::string text(const Operation &operation);
} // namespace operations

#endif
