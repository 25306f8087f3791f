/// Calls into the module as data, so that enumerations, explored worlds, random runs and fuzzing share one
/// way to make, carry out and write down an operation.
#ifndef KYBRIDGE_TESTS_SUPPORT_OPERATIONS_H
#define KYBRIDGE_TESTS_SUPPORT_OPERATIONS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "sdk/sdk.h"

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

/// An operation and the service calls in it that are to fail.
struct Step {
    Operation operation;
    std::vector<unsigned> failing_calls = {}; ///< 1: the first that it makes
    ky_status_t fault = 77;                   ///< what a failing call answers
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
/// Any operation, in one of six with a fault planned, which about one of seventy reaches.
Step any_step(const Domain &domain, const Below &below);

/// The stand-in as after power-on, with the domain's ports in SWID 0, and the module told of nobody. SWID 1
/// is served and not in RSTP mode, every other SWID but 0 is not served.
void power_on(const Domain &domain);

/// Calls the module. So that what it does depends on the state alone, VLAN groups are handed out under their
/// bridge's number, and regions and ACLs from 1 when there are none.
Answer apply(const Operation &operation);
/// Calls the module with the step's fault planned. @param[out] failed the calls that a planned fault answered
Answer apply(const Step &step, std::vector<sdk::Call> &failed);

/// Whether a rule of a direction is deleted by a call.
bool deletes_rule(const sdk::Call &call, sdk::Direction direction);

/// Leaves out of a failing sequence whatever can be left out, in ever smaller pieces: steps, then their faults.
/// @param fails whether the last step still shows the failure
std::vector<Step> shrink(std::vector<Step> steps, const std::function<bool(const std::vector<Step> &)> &fails);

/// An operation as a command for kybridge-host.
std::string text(const Operation &operation);
/// The steps as a script for kybridge-host, after the lines that `power_on` stands for.
std::string script(const Domain &domain, const std::vector<Step> &steps);

} // namespace operations

#endif
