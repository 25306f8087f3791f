/// Every call that crosses the module's border, once: what it is called, what it takes, and which way the memory
/// behind its pointers goes. Recorder, reader and player, the stand-in's journal, the host's loading and its command
/// `call`, and the contract kit are all made from these tables.
///
/// X(answer, name, parameters, arguments...): each argument is the parameter itself where it is a number, or
///
///     in(p), out(p), inout(p)   one number or one record behind a pointer, which is sent, answered, or both
///     list(p)                   an array that is answered; the next argument points to its capacity and count
///     entries(p)                an array that is sent; the argument before it is the count
///     group(p)                  a VLAN group record with its list of VLANs behind it, sent and answered
///     block(p)                  an address that is not looked behind
///     callback(f)               a function of the module
///
/// A call's place in the tables is its number in files, so calls are only ever added at a table's end.
#ifndef KYBRIDGE_RECORD_CALLS_H
#define KYBRIDGE_RECORD_CALLS_H

#include <string_view>

#include "kybridge/ky_bridge.h"

/// What the process calls: the module's exported functions.
#define KYBRIDGE_FUNCTIONS(X)                                                                                          \
    X(ky_status_t, ky_bridge_init, (const ky_bridge_init_params_t *bridge_init_param), in(bridge_init_param))          \
    X(ky_status_t, ky_bridge_deinit, ())                                                                               \
    X(ky_status_t, ky_bridge_mode_get, (ky_bridge_sdk_mode_t * mode_p), out(mode_p))                                   \
    X(ky_status_t, ky_bridge_log_verbosity_level_set, (uint32_t level), level)                                         \
    X(ky_status_t, ky_bridge_log_verbosity_level_get, (uint32_t * level_p), out(level_p))                              \
    X(ky_status_t, ky_bridge_set, (ky_access_cmd_t cmd, uint16_t * bridge_id_p, uint32_t is_internal), cmd,            \
      inout(bridge_id_p), is_internal)                                                                                 \
    X(ky_status_t, ky_bridge_ref_cnt_increase, (uint16_t bridge_id), bridge_id)                                        \
    X(ky_status_t, ky_bridge_ref_cnt_decrease, (uint16_t bridge_id), bridge_id)                                        \
    X(ky_status_t, ky_bridge_port_set,                                                                                 \
      (ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t log_port, uint16_t vlan, uint32_t egress_mode,                \
       uint32_t is_internal),                                                                                          \
      cmd, bridge_id, log_port, vlan, egress_mode, is_internal)                                                        \
    X(ky_status_t, ky_bridge_clear_port, (uint32_t log_port, uint32_t release_log_port), log_port, release_log_port)   \
    X(ky_status_t, ky_bridge_clear_undo, (uint32_t log_port, uint8_t swid), log_port, swid)                            \
    X(ky_status_t, ky_bridge_port_get,                                                                                 \
      (uint16_t bridge_id, ky_bridge_port_t * bridge_port_list_p, uint32_t * bridge_port_cnt_p, uint32_t is_internal), \
      bridge_id, list(bridge_port_list_p), inout(bridge_port_cnt_p), is_internal)                                      \
    X(ky_status_t, ky_bridge_int_vlan_id_get, (uint16_t bridge_id, uint16_t * vid, uint32_t is_internal), bridge_id,   \
      out(vid), is_internal)                                                                                           \
    X(ky_status_t, ky_bridge_int_vlan_list_get, (uint32_t log_port, uint16_t * vid, uint32_t * vid_num), log_port,     \
      list(vid), inout(vid_num))                                                                                       \
    X(ky_status_t, ky_bridge_int_vlan_bridge_id_get, (uint16_t int_vlan, uint16_t * bridge_id), int_vlan,              \
      out(bridge_id))                                                                                                  \
    X(ky_status_t, ky_bridge_log_port_member_state, (uint32_t arg, uint32_t log_port), arg, log_port)                  \
    X(ky_status_t, ky_bridge_int_vlan_group_set,                                                                       \
      (ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t direction, uint16_t * vlan_group), cmd, bridge_id, direction, \
      out(vlan_group))                                                                                                 \
    X(ky_status_t, ky_bridge_int_vlan_group_get, (uint16_t bridge_id, uint16_t * vlan_group), bridge_id,               \
      out(vlan_group))                                                                                                 \
    X(ky_status_t, ky_bridge_port_acl_binding_get, (uint32_t log_port, uint32_t * ingress_acl, uint32_t * egress_acl), \
      log_port, out(ingress_acl), out(egress_acl))                                                                     \
    X(ky_status_t, ky_bridge_set_learning_mode,                                                                        \
      (uint16_t bridge_id, ky_fdb_learn_mode_t learning_mode, uint32_t is_internal), bridge_id, learning_mode,         \
      is_internal)                                                                                                     \
    X(ky_status_t, ky_bridge_get_learning_mode,                                                                        \
      (uint16_t bridge_id, ky_fdb_learn_mode_t * learning_mode_p, uint32_t is_internal), bridge_id,                    \
      out(learning_mode_p), is_internal)

/// What the module calls by name: the services of the SDK. ky_log, which takes any arguments, stands beside them.
#define KYBRIDGE_SERVICES(X)                                                                                           \
    X(ky_status_t, acl_region_set, (ky_acl_region_params_t * region, uint32_t arg1, uint32_t arg2, uint32_t arg3),     \
      inout(region), arg1, arg2, arg3)                                                                                 \
    X(ky_status_t, acl_set, (ky_acl_params_t * acl), inout(acl))                                                       \
    X(ky_status_t, acl_rules_set, (ky_acl_rules_params_t * rules), inout(rules))                                       \
    X(ky_status_t, acl_bind_port, (ky_acl_bind_params_t * binding), inout(binding))                                    \
    X(ky_status_t, acl_bind_port_get, (ky_acl_bind_params_t * binding), inout(binding))                                \
    X(ky_status_t, acl_unbind_port, (ky_acl_bind_params_t * binding), inout(binding))                                  \
    X(ky_status_t, acl_vlan_group_set, (ky_acl_vlan_group_params_t * group_record), group(group_record))               \
    X(ky_status_t, port_db_check_port_mode_router_port, (uint32_t log_port), log_port)                                 \
    X(ky_status_t, port_swid_alloc_get, (ky_access_cmd_t cmd, uint32_t log_port, uint8_t * swid), cmd, log_port,       \
      out(swid))                                                                                                       \
    X(ky_status_t, port_lag_member_state_get, (ky_access_cmd_t cmd, uint32_t log_port, uint8_t * is_member), cmd,      \
      log_port, out(is_member))                                                                                        \
    X(ky_status_t, swid_validation, (unsigned int swid), swid)                                                         \
    X(ky_status_t, bridge_port_set,                                                                                    \
      (ky_access_cmd_t cmd, uint16_t bridge_id, uint32_t log_port, uint16_t vlan, uint32_t egress_mode,                \
       uint32_t is_internal),                                                                                          \
      cmd, bridge_id, log_port, vlan, egress_mode, is_internal)                                                        \
    X(ky_status_t, vlan_port_multi_vlans_set,                                                                          \
      (ky_access_cmd_t cmd, uint32_t log_port, uint32_t count, ky_vlan_entry_t * vlans), cmd, log_port, count,         \
      entries(vlans))                                                                                                  \
    X(ky_status_t, mstp_mode_get, (ky_access_cmd_t cmd, uint8_t swid, uint32_t * mode), cmd, swid, out(mode))          \
    X(ky_status_t, rstp_port_state_get, (ky_access_cmd_t cmd, uint32_t log_port, uint32_t * state), cmd, log_port,     \
      out(state))                                                                                                      \
    X(ky_status_t, rstp_port_state_set, (ky_access_cmd_t cmd, uint32_t log_port, uint32_t * state), cmd, log_port,     \
      in(state))                                                                                                       \
    X(ky_status_t, adviser_register_event, (uint32_t arg, uint32_t event_type, ky_adviser_callback_t function), arg,   \
      event_type, callback(function))                                                                                  \
    X(ky_status_t, utils_clr_memory_get, (void **memory, uint32_t count, uint32_t size, uint32_t tag), out(memory),    \
      count, size, tag)                                                                                                \
    X(ky_status_t, utils_memory_put, (void *memory, uint32_t tag), block(memory), tag)                                 \
    X(void *, cl_malloc, (size_t size), size)                                                                          \
    X(void, cl_free, (void *memory), block(memory))

/// What the SDK calls: the callback that the module registers for events.
#define KYBRIDGE_EVENTS(X)                                                                                             \
    X(ky_status_t, port_event, (uint32_t event_type, const ky_port_event_t *event), event_type, in(event))

namespace record {

#define KYBRIDGE_NAME(answer, name, ...) #name,
inline constexpr std::string_view function_names[] = {KYBRIDGE_FUNCTIONS(KYBRIDGE_NAME)};
inline constexpr std::string_view service_names[] = {KYBRIDGE_SERVICES(KYBRIDGE_NAME)};
#undef KYBRIDGE_NAME

/// Whether a process must supply a service under its name. swid_validation is what it puts into
/// swid_validation_func_ptr, and cl_malloc and cl_free are there without it.
constexpr bool is_supplied_by_name(std::string_view service)
{
    return service != "swid_validation" && service != "cl_malloc" && service != "cl_free";
}

} // namespace record

#endif
