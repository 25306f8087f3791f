/// Calls into the module as data, so that enumerations, explored worlds, random runs and fuzzing share one
/// way to make, carry out and write down an operation.
#ifndef KYBRIDGE_CONFORM_MODEL_OPERATIONS_H
#define KYBRIDGE_CONFORM_MODEL_OPERATIONS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kybridge/ky_bridge.h"

/// Everything that a host does with the module: CHANGE(kind, form, form with NULL) what can change its state,
/// QUESTION(...) what cannot. A form is how the operation is written in a script, with its pointer or with NULL
/// instead; the second one is empty where there is no pointer. The first one also tells what arguments the operation
/// takes:
///
///     {bridge}, {port}, {vlan}        the operation's members of these names
///     {port_or_all}                   a port, or 0 for all
///     {value}, {swid}, {capacity}     its value: one of two, a partition's number, or the length of a list
///     {internal}, {release}, {flag}   its flag: as a word, or as 0 and 1
#define KYBRIDGE_OPERATIONS(CHANGE, QUESTION)                                                                          \
    CHANGE(start, "start mode {value} bridges {bridge} virtual-ports {vlan} multiple-vlan {port}", "")                 \
    CHANGE(stop, "stop", "")                                                                                           \
    CHANGE(create, "bridge create{internal}", "call ky_bridge_set cmd CREATE bridge_id_p NULL")                        \
    CHANGE(destroy, "bridge destroy {bridge}{internal}", "call ky_bridge_set cmd DESTROY bridge_id_p NULL")            \
    CHANGE(reference, "bridge ref {bridge}", "")                                                                       \
    CHANGE(unreference, "bridge unref {bridge}", "")                                                                   \
    CHANGE(add, "vport add {bridge} {port} vlan {vlan} {value}{internal}", "")                                         \
    CHANGE(remove, "vport delete {bridge} {port} vlan {vlan} {value}{internal}", "")                                   \
    CHANGE(remove_port, "vport delete-port {port}", "")                                                                \
    CHANGE(announce, "port announce {port} swid {swid}", "")                                                           \
    CHANGE(withdraw, "port withdraw {port}", "")                                                                       \
    CHANGE(clear, "port clear {port}{release}", "")                                                                    \
    CHANGE(restore, "port restore {port} swid {swid}", "")                                                             \
    CHANGE(learn, "learning {bridge} {value}{internal}", "")                                                           \
    CHANGE(bind, "bind {bridge} {value}",                                                                              \
           "call ky_bridge_int_vlan_group_set cmd BIND bridge_id {bridge} direction {value} vlan_group NULL")          \
    CHANGE(unbind, "unbind {bridge} {value}", "")                                                                      \
    QUESTION(port_list, "call ky_bridge_port_get bridge_id {bridge} bridge_port_cnt_p {capacity} is_internal {flag}",  \
             "call ky_bridge_port_get bridge_id {bridge} bridge_port_cnt_p NULL is_internal {flag}")                   \
    QUESTION(int_vlan, "call ky_bridge_int_vlan_id_get bridge_id {bridge} is_internal {flag}",                         \
             "call ky_bridge_int_vlan_id_get bridge_id {bridge} vid NULL is_internal {flag}")                          \
    QUESTION(int_vlan_list, "call ky_bridge_int_vlan_list_get log_port {port_or_all} vid_num {capacity}",              \
             "call ky_bridge_int_vlan_list_get log_port {port_or_all} vid_num NULL")                                   \
    QUESTION(int_vlan_owner, "call ky_bridge_int_vlan_bridge_id_get int_vlan {vlan}",                                  \
             "call ky_bridge_int_vlan_bridge_id_get int_vlan {vlan} bridge_id NULL")                                   \
    QUESTION(member_state, "call ky_bridge_log_port_member_state log_port {port}", "")                                 \
    QUESTION(group, "call ky_bridge_int_vlan_group_get bridge_id {bridge}",                                            \
             "call ky_bridge_int_vlan_group_get bridge_id {bridge} vlan_group NULL")                                   \
    QUESTION(port_acls, "call ky_bridge_port_acl_binding_get log_port {port}",                                         \
             "call ky_bridge_port_acl_binding_get log_port {port} ingress_acl NULL egress_acl NULL")                   \
    QUESTION(learning, "call ky_bridge_get_learning_mode bridge_id {bridge} is_internal {flag}",                       \
             "call ky_bridge_get_learning_mode bridge_id {bridge} learning_mode_p NULL is_internal {flag}")            \
    QUESTION(mode, "call ky_bridge_mode_get", "call ky_bridge_mode_get mode_p NULL")

namespace operations {

#define KYBRIDGE_KIND(kind, ...) kind,
enum class Kind : std::uint8_t { KYBRIDGE_OPERATIONS(KYBRIDGE_KIND, KYBRIDGE_KIND) };
#undef KYBRIDGE_KIND

bool is_question(Kind kind);

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
