// Every exported function with any arguments, NULL pointers and numbers out of range among them.
#include "host/commands/commands.h"

#include <algorithm>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>

#include <fmt/format.h>

#include "record/interface.h"

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

/// A line of a script that calls a function.
const char *example_of(std::string_view function)
{
    static const std::map<std::string_view, const char *> examples = {
        {"ky_bridge_init", "expect PARAM_ERROR call ky_bridge_init bridge_init_param NULL"},
        {"ky_bridge_deinit", "call ky_bridge_deinit"},
        {"ky_bridge_mode_get", "expect PARAM_NULL call ky_bridge_mode_get mode_p NULL"},
        {"ky_bridge_log_verbosity_level_set", "call ky_bridge_log_verbosity_level_set level 3"},
        {"ky_bridge_log_verbosity_level_get", "call ky_bridge_log_verbosity_level_get"},
        {"ky_bridge_set", "expect CMD_UNSUPPORTED call ky_bridge_set cmd 40 bridge_id_p 1"},
        {"ky_bridge_ref_cnt_increase", "call ky_bridge_ref_cnt_increase bridge_id red"},
        {"ky_bridge_ref_cnt_decrease", "call ky_bridge_ref_cnt_decrease bridge_id red"},
        {"ky_bridge_port_set",
         "expect PARAM_EXCEEDS_RANGE call ky_bridge_port_set cmd ADD bridge_id 1 log_port north vlan 4095"},
        {"ky_bridge_clear_port", "call ky_bridge_clear_port log_port north release_log_port 1"},
        {"ky_bridge_clear_undo", "call ky_bridge_clear_undo log_port north swid 0"},
        {"ky_bridge_port_get", "call ky_bridge_port_get bridge_id red bridge_port_list_p NULL bridge_port_cnt_p 0"},
        {"ky_bridge_int_vlan_id_get", "call ky_bridge_int_vlan_id_get bridge_id red"},
        {"ky_bridge_int_vlan_list_get", "call ky_bridge_int_vlan_list_get log_port 0 vid_num 10"},
        {"ky_bridge_int_vlan_bridge_id_get", "call ky_bridge_int_vlan_bridge_id_get int_vlan 1"},
        {"ky_bridge_log_port_member_state",
         "expect ENTRY_NOT_FOUND call ky_bridge_log_port_member_state log_port north"},
        {"ky_bridge_int_vlan_group_set",
         "expect PARAM_EXCEEDS_RANGE call ky_bridge_int_vlan_group_set cmd BIND bridge_id red direction 2"},
        {"ky_bridge_int_vlan_group_get", "call ky_bridge_int_vlan_group_get bridge_id red"},
        {"ky_bridge_port_acl_binding_get", "call ky_bridge_port_acl_binding_get log_port north egress_acl NULL"},
        {"ky_bridge_set_learning_mode", "call ky_bridge_set_learning_mode bridge_id red learning_mode 7"},
        {"ky_bridge_get_learning_mode",
         "expect PARAM_NULL call ky_bridge_get_learning_mode bridge_id red learning_mode_p NULL"},
    };
    return examples.at(function);
}

/// The command that calls one function.
template <typename... Parameters>
Command call(const record::Callable &called, ky_status_t (*Module::*function)(Parameters...))
{
    const std::string name(called.name);
    Words names;
    for (std::size_t i = 0; i < sizeof...(Parameters); ++i)
        names.emplace_back(called.arguments.at(i).name);
    std::string synopsis;
    [[maybe_unused]] std::size_t at = 0;
    ((synopsis += fmt::format("{}[{} {}]", at == 0 ? "" : " ", names[at], kind_of<Parameters>(names[at])), ++at), ...);

    const auto run = [=]<std::size_t... I>(const Host &host, [[maybe_unused]] const Arguments &arguments,
                                           std::index_sequence<I...>)
    {
        [[maybe_unused]] std::tuple<Slot<Parameters>...> slots{Slot<Parameters>(arguments, names[I])...};
        Result result;
        result.status = (host.module.*function)(std::get<I>(slots).pass()...);
        result.text = name + " answered " + numbered_status(result.status);
        ((result.outputs += std::get<I>(slots).output()), ...);
        return result;
    };
    return {"call " + name, synopsis, fmt::format("Calls {}", name), example_of(name),
            [=](const Host &host, const Arguments &arguments) {
                return run(host, arguments, std::index_sequence_for<Parameters...>{});
            }};
}

/// The one function that takes a record: its members are given by name.
Command call(const record::Callable &called, ky_status_t (*Module::*)(const ky_bridge_init_params_t *))
{
    const std::string name(called.name);
    const std::string parameter(called.arguments.front().name);
    const auto run = [parameter](const Host &host, const Arguments &arguments) {
        ky_bridge_init_params_t params{};
        params.sdk_mode = arguments.number_or("sdk_mode", 0);
        ky_bridge_mode_1d_params_t &sizes = params.sdk_mode_params.mode_1D;
        sizes.max_bridge_num = arguments.number_or("max_bridge_num", 0);
        sizes.max_virtual_ports_num = arguments.number_or("max_virtual_ports_num", 0);
        sizes.multiple_vlan_bridge_mode = arguments.number_or("multiple_vlan_bridge_mode", 0);
        if (host.module.is_started())
            throw ScriptError("the module is started already; 'stop' comes first");
        const bool is_null = arguments.has(parameter);
        Result result;
        result.status = host.module.ky_bridge_init(is_null ? nullptr : &params);
        result.text = "ky_bridge_init answered " + numbered_status(result.status);
        return result;
    };
    return {"call " + name,
            "[" + parameter +
                " ABSENT] [sdk_mode MODE] [max_bridge_num N] [max_virtual_ports_num N] "
                "[multiple_vlan_bridge_mode N]",
            "Calls " + name + " with a record of these members, or with NULL", example_of(name), run};
}

} // namespace

CommandGroup call_commands()
{
    const record::Callable *called = std::begin(record::functions);
#define KYBRIDGE_CALL(answer, function, ...) call(*called++, &Module::function),
    return {"EXPORTED FUNCTIONS (a value that is not given is 0, a pointer that is not given points to room)",
            {KYBRIDGE_FUNCTIONS(KYBRIDGE_CALL)}};
#undef KYBRIDGE_CALL
}

} // namespace host
