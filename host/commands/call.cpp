// Every exported function with any arguments, NULL pointers and numbers out of range among them.
#include "host/commands/commands.h"

#include <algorithm>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>

#include <fmt/format.h>

namespace host {

namespace {

/// An argument that is passed by value; 0 when the script does not give it.
template <typename T> class Slot {
public:
    Slot(const Arguments &arguments, const std::string &name) : value_(static_cast<T>(arguments.number_or(name, 0))) {}
    T pass() { return value_; }
    std::string output() const { return ""; }

private:
    T value_;
};

std::string text_of(std::uint32_t number)
{
    return fmt::to_string(number);
}

std::string text_of(const ky_bridge_port_t &vport)
{
    return fmt::format("(0x{:08X} vlan {} mode {})", vport.log_port, vport.vlan, vport.egress_mode);
}

constexpr int unwritten = 0xA5; ///< every byte of the pattern

/// A pointer: NULL when the script says so, else to room for every list that the module can make. The
/// first element holds the script's number, if it gives one, and everything else a pattern that no
/// answer has, by which one sees what was written.
template <typename T> class Slot<T *> {
public:
    Slot(const Arguments &arguments, std::string name)
        : name_(std::move(name)), is_null_(arguments.has(name_) && arguments.text(name_) == "NULL"),
          room_(KY_VLAN_ID_MAX)
    {
        std::memset(static_cast<void *>(room_.data()), unwritten, room_.size() * sizeof(T));
        if constexpr (std::is_integral_v<T>)
            if (arguments.has(name_))
                room_.front() = static_cast<T>(arguments.number(name_));
    }
    T *pass() { return is_null_ ? nullptr : room_.data(); }
    std::string output() const
    {
        if (is_null_)
            return "";
        std::string elements;
        for (const T &element : room_) {
            T untouched;
            std::memset(static_cast<void *>(&untouched), unwritten, sizeof untouched);
            if (std::memcmp(&element, &untouched, sizeof element) == 0)
                break;
            elements += " " + text_of(element);
        }
        return fmt::format("; {}:{}", name_, elements.empty() ? " not written" : elements);
    }

private:
    std::string name_;
    bool is_null_;
    std::vector<T> room_;
};

/// The kind of a parameter: by its name where scripts have words or names for its values, else by its type.
template <typename T> std::string kind_of(const std::string &name)
{
    static const std::map<std::string, std::string> by_name = {
        {"cmd", "CMD"},         {"bridge_id", "BRIDGE"},       {"log_port", "PORT"},
        {"swid", "SWID"},       {"egress_mode", "TAGGING"},    {"direction", "DIRECTION"},
        {"level", "VERBOSITY"}, {"learning_mode", "LEARNING"},
    };
    if constexpr (std::is_pointer_v<T>)
        return sizeof(std::remove_pointer_t<T>) == sizeof(std::uint16_t) ? "POINTER16" : "POINTER";
    else if (const auto found = by_name.find(name); found != by_name.end())
        return found->second;
    else
        return sizeof(T) == sizeof(std::uint16_t) ? "VLAN" : "N";
}

/// The command that calls one function. @param parameters its parameters' names, blanks between
template <typename... Parameters>
Command call(const std::string &name, ky_status_t (*Module::*function)(Parameters...), const std::string &parameters,
             const std::string &example)
{
    const Words names = parse_line(parameters);
    std::string synopsis;
    [[maybe_unused]] std::size_t at = 0;
    ((synopsis += fmt::format("{}[{} {}]", at == 0 ? "" : " ", names[at], kind_of<Parameters>(names[at])), ++at), ...);

    const auto run = [=]<std::size_t... I>(const Host &host, [[maybe_unused]] const Arguments &arguments,
                                           std::index_sequence<I...>)
    {
        [[maybe_unused]] std::tuple<Slot<Parameters>...> slots{Slot<Parameters>(arguments, names[I])...};
        Result result;
        result.status = (host.module.*function)(std::get<I>(slots).pass()...);
        result.text = name + " answered " + status_text(result.status);
        ((result.outputs += std::get<I>(slots).output()), ...);
        return result;
    };
    return {"call " + name, synopsis, fmt::format("Calls {}", name), example,
            [=](const Host &host, const Arguments &arguments) {
                return run(host, arguments, std::index_sequence_for<Parameters...>{});
            }};
}

/// The one function that takes a record.
Command call_init()
{
    const auto run = [](const Host &host, const Arguments &arguments) {
        ky_bridge_init_params_t params{};
        params.sdk_mode = arguments.number_or("sdk_mode", 0);
        ky_bridge_mode_1d_params_t &sizes = params.sdk_mode_params.mode_1D;
        sizes.max_bridge_num = arguments.number_or("max_bridge_num", 0);
        sizes.max_virtual_ports_num = arguments.number_or("max_virtual_ports_num", 0);
        sizes.multiple_vlan_bridge_mode = arguments.number_or("multiple_vlan_bridge_mode", 0);
        if (host.module.is_started())
            throw ScriptError("the module is started already; 'stop' comes first");
        const bool is_null = arguments.has("bridge_init_param");
        Result result;
        result.status = host.module.ky_bridge_init(is_null ? nullptr : &params);
        result.text = "ky_bridge_init answered " + status_text(result.status);
        return result;
    };
    return {"call ky_bridge_init",
            "[bridge_init_param ABSENT] [sdk_mode MODE] [max_bridge_num N] [max_virtual_ports_num N] "
            "[multiple_vlan_bridge_mode N]",
            "Calls ky_bridge_init with a record of these members, or with NULL",
            "expect PARAM_ERROR call ky_bridge_init bridge_init_param NULL", run};
}

} // namespace

CommandGroup call_commands()
{
    using M = Module;
    return {
        "EXPORTED FUNCTIONS (a value that is not given is 0, a pointer that is not given points to room)",
        {
            call_init(),
            call("ky_bridge_deinit", &M::ky_bridge_deinit, "", "call ky_bridge_deinit"),
            call("ky_bridge_mode_get", &M::ky_bridge_mode_get, "mode_p",
                 "expect PARAM_NULL call ky_bridge_mode_get mode_p NULL"),
            call("ky_bridge_log_verbosity_level_set", &M::ky_bridge_log_verbosity_level_set, "level",
                 "call ky_bridge_log_verbosity_level_set level 3"),
            call("ky_bridge_log_verbosity_level_get", &M::ky_bridge_log_verbosity_level_get, "level_p",
                 "call ky_bridge_log_verbosity_level_get"),
            call("ky_bridge_set", &M::ky_bridge_set, "cmd bridge_id_p is_internal",
                 "expect CMD_UNSUPPORTED call ky_bridge_set cmd 40 bridge_id_p 1"),
            call("ky_bridge_ref_cnt_increase", &M::ky_bridge_ref_cnt_increase, "bridge_id",
                 "call ky_bridge_ref_cnt_increase bridge_id red"),
            call("ky_bridge_ref_cnt_decrease", &M::ky_bridge_ref_cnt_decrease, "bridge_id",
                 "call ky_bridge_ref_cnt_decrease bridge_id red"),
            call("ky_bridge_port_set", &M::ky_bridge_port_set, "cmd bridge_id log_port vlan egress_mode is_internal",
                 "expect PARAM_EXCEEDS_RANGE call ky_bridge_port_set cmd ADD bridge_id 1 log_port north vlan 4095"),
            call("ky_bridge_clear_port", &M::ky_bridge_clear_port, "log_port release_log_port",
                 "call ky_bridge_clear_port log_port north release_log_port 1"),
            call("ky_bridge_clear_undo", &M::ky_bridge_clear_undo, "log_port swid",
                 "call ky_bridge_clear_undo log_port north swid 0"),
            call("ky_bridge_port_get", &M::ky_bridge_port_get,
                 "bridge_id bridge_port_list_p bridge_port_cnt_p is_internal",
                 "call ky_bridge_port_get bridge_id red bridge_port_list_p NULL bridge_port_cnt_p 0"),
            call("ky_bridge_int_vlan_id_get", &M::ky_bridge_int_vlan_id_get, "bridge_id vid is_internal",
                 "call ky_bridge_int_vlan_id_get bridge_id red"),
            call("ky_bridge_int_vlan_list_get", &M::ky_bridge_int_vlan_list_get, "log_port vid vid_num",
                 "call ky_bridge_int_vlan_list_get log_port 0 vid_num 10"),
            call("ky_bridge_int_vlan_bridge_id_get", &M::ky_bridge_int_vlan_bridge_id_get, "int_vlan bridge_id",
                 "call ky_bridge_int_vlan_bridge_id_get int_vlan 1"),
            call("ky_bridge_log_port_member_state", &M::ky_bridge_log_port_member_state, "arg log_port",
                 "expect ENTRY_NOT_FOUND call ky_bridge_log_port_member_state log_port north"),
            call("ky_bridge_int_vlan_group_set", &M::ky_bridge_int_vlan_group_set, "cmd bridge_id direction vlan_group",
                 "expect PARAM_EXCEEDS_RANGE call ky_bridge_int_vlan_group_set cmd BIND bridge_id red direction 2"),
            call("ky_bridge_int_vlan_group_get", &M::ky_bridge_int_vlan_group_get, "bridge_id vlan_group",
                 "call ky_bridge_int_vlan_group_get bridge_id red"),
            call("ky_bridge_port_acl_binding_get", &M::ky_bridge_port_acl_binding_get,
                 "log_port ingress_acl egress_acl",
                 "call ky_bridge_port_acl_binding_get log_port north egress_acl NULL"),
            call("ky_bridge_set_learning_mode", &M::ky_bridge_set_learning_mode, "bridge_id learning_mode is_internal",
                 "call ky_bridge_set_learning_mode bridge_id red learning_mode 7"),
            call("ky_bridge_get_learning_mode", &M::ky_bridge_get_learning_mode,
                 "bridge_id learning_mode_p is_internal",
                 "expect PARAM_NULL call ky_bridge_get_learning_mode bridge_id red learning_mode_p NULL"),
        }};
}

} // namespace host
