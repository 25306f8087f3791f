/// The one list of the module's exported functions that the host keeps.
#ifndef KYBRIDGE_HOST_FUNCTIONS_H
#define KYBRIDGE_HOST_FUNCTIONS_H

/// Every exported function: X(name, its parameters' names with blanks between, an example of a script's line).
#define KYBRIDGE_FUNCTIONS(X)                                                                                          \
    X(ky_bridge_init, "bridge_init_param", "expect PARAM_ERROR call ky_bridge_init bridge_init_param NULL")            \
    X(ky_bridge_deinit, "", "call ky_bridge_deinit")                                                                   \
    X(ky_bridge_mode_get, "mode_p", "expect PARAM_NULL call ky_bridge_mode_get mode_p NULL")                           \
    X(ky_bridge_log_verbosity_level_set, "level", "call ky_bridge_log_verbosity_level_set level 3")                    \
    X(ky_bridge_log_verbosity_level_get, "level_p", "call ky_bridge_log_verbosity_level_get")                          \
    X(ky_bridge_set, "cmd bridge_id_p is_internal", "expect CMD_UNSUPPORTED call ky_bridge_set cmd 40 bridge_id_p 1")  \
    X(ky_bridge_ref_cnt_increase, "bridge_id", "call ky_bridge_ref_cnt_increase bridge_id red")                        \
    X(ky_bridge_ref_cnt_decrease, "bridge_id", "call ky_bridge_ref_cnt_decrease bridge_id red")                        \
    X(ky_bridge_port_set, "cmd bridge_id log_port vlan egress_mode is_internal",                                       \
      "expect PARAM_EXCEEDS_RANGE call ky_bridge_port_set cmd ADD bridge_id 1 log_port north vlan 4095")               \
    X(ky_bridge_clear_port, "log_port release_log_port",                                                               \
      "call ky_bridge_clear_port log_port north release_log_port 1")                                                   \
    X(ky_bridge_clear_undo, "log_port swid", "call ky_bridge_clear_undo log_port north swid 0")                        \
    X(ky_bridge_port_get, "bridge_id bridge_port_list_p bridge_port_cnt_p is_internal",                                \
      "call ky_bridge_port_get bridge_id red bridge_port_list_p NULL bridge_port_cnt_p 0")                             \
    X(ky_bridge_int_vlan_id_get, "bridge_id vid is_internal", "call ky_bridge_int_vlan_id_get bridge_id red")          \
    X(ky_bridge_int_vlan_list_get, "log_port vid vid_num", "call ky_bridge_int_vlan_list_get log_port 0 vid_num 10")   \
    X(ky_bridge_int_vlan_bridge_id_get, "int_vlan bridge_id", "call ky_bridge_int_vlan_bridge_id_get int_vlan 1")      \
    X(ky_bridge_log_port_member_state, "arg log_port",                                                                 \
      "expect ENTRY_NOT_FOUND call ky_bridge_log_port_member_state log_port north")                                    \
    X(ky_bridge_int_vlan_group_set, "cmd bridge_id direction vlan_group",                                              \
      "expect PARAM_EXCEEDS_RANGE call ky_bridge_int_vlan_group_set cmd BIND bridge_id red direction 2")               \
    X(ky_bridge_int_vlan_group_get, "bridge_id vlan_group", "call ky_bridge_int_vlan_group_get bridge_id red")         \
    X(ky_bridge_port_acl_binding_get, "log_port ingress_acl egress_acl",                                               \
      "call ky_bridge_port_acl_binding_get log_port north egress_acl NULL")                                            \
    X(ky_bridge_set_learning_mode, "bridge_id learning_mode is_internal",                                              \
      "call ky_bridge_set_learning_mode bridge_id red learning_mode 7")                                                \
    X(ky_bridge_get_learning_mode, "bridge_id learning_mode_p is_internal",                                            \
      "expect PARAM_NULL call ky_bridge_get_learning_mode bridge_id red learning_mode_p NULL")

#endif
