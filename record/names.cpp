#include "record/names.h"

#include <algorithm>

#include <fmt/format.h>

#include "kybridge/ky_types.h"

namespace record {

const NamedNumbers &status_names()
{
    static const NamedNumbers names = {
        {"SUCCESS", KY_STATUS_SUCCESS},
        {"ERROR", KY_STATUS_ERROR},
        {"SDK_NOT_INITIALIZED", KY_STATUS_SDK_NOT_INITIALIZED},
        {"INVALID_HANDLE", KY_STATUS_INVALID_HANDLE},
        {"COMM_ERROR", KY_STATUS_COMM_ERROR},
        {"NO_RESOURCES", KY_STATUS_NO_RESOURCES},
        {"NO_MEMORY", KY_STATUS_NO_MEMORY},
        {"MEMORY_ERROR", KY_STATUS_MEMORY_ERROR},
        {"CMD_ERROR", KY_STATUS_CMD_ERROR},
        {"CMD_INCOMPLETE", KY_STATUS_CMD_INCOMPLETE},
        {"CMD_UNSUPPORTED", KY_STATUS_CMD_UNSUPPORTED},
        {"CMD_UNPERMITTED", KY_STATUS_CMD_UNPERMITTED},
        {"PARAM_NULL", KY_STATUS_PARAM_NULL},
        {"PARAM_ERROR", KY_STATUS_PARAM_ERROR},
        {"PARAM_EXCEEDS_RANGE", KY_STATUS_PARAM_EXCEEDS_RANGE},
        {"MESSAGE_SIZE_INVALID", KY_STATUS_MESSAGE_SIZE_INVALID},
        {"MESSAGE_SIZE_EXCEEDS_LIMIT", KY_STATUS_MESSAGE_SIZE_EXCEEDS_LIMIT},
        {"DB_ALREADY_INITIALIZED", KY_STATUS_DB_ALREADY_INITIALIZED},
        {"DB_NOT_INITIALIZED", KY_STATUS_DB_NOT_INITIALIZED},
        {"DB_NOT_EMPTY", KY_STATUS_DB_NOT_EMPTY},
        {"END_OF_DB", KY_STATUS_END_OF_DB},
        {"ENTRY_NOT_FOUND", KY_STATUS_ENTRY_NOT_FOUND},
        {"ENTRY_ALREADY_EXISTS", KY_STATUS_ENTRY_ALREADY_EXISTS},
        {"ENTRY_NOT_BOUND", KY_STATUS_ENTRY_NOT_BOUND},
        {"ENTRY_ALREADY_BOUND", KY_STATUS_ENTRY_ALREADY_BOUND},
        {"WRONG_POLICER_TYPE", KY_STATUS_WRONG_POLICER_TYPE},
        {"UNEXPECTED_EVENT_TYPE", KY_STATUS_UNEXPECTED_EVENT_TYPE},
        {"TRAP_ID_NOT_CONFIGURED", KY_STATUS_TRAP_ID_NOT_CONFIGURED},
        {"INT_COMM_CLOSE", KY_STATUS_INT_COMM_CLOSE},
        {"RESOURCE_IN_USE", KY_STATUS_RESOURCE_IN_USE},
        {"TRAP_ID_ALREADY_ASSOCIATED", KY_STATUS_TRAP_ID_ALREADY_ASSOCIATED},
        {"ALREADY_INITIALIZED", KY_STATUS_ALREADY_INITIALIZED},
        {"TIMEOUT", KY_STATUS_TIMEOUT},
        {"MODULE_UNINITIALIZED", KY_STATUS_MODULE_UNINITIALIZED},
        {"UNSUPPORTED", KY_STATUS_UNSUPPORTED},
        {"UTILS_RETURNED_NON_ZERO", KY_STATUS_UTILS_RETURNED_NON_ZERO},
        {"PARTIALLY_COMPLETE", KY_STATUS_PARTIALLY_COMPLETE},
        {"DRIVER_RETURNED_NON_ZERO", KY_STATUS_DRIVER_RETURNED_NON_ZERO},
    };
    return names;
}

const NamedNumbers &access_cmd_names()
{
    static const NamedNumbers names = {
        {"ADD", KY_ACCESS_CMD_ADD},
        {"DELETE", KY_ACCESS_CMD_DELETE},
        {"CREATE", KY_ACCESS_CMD_CREATE},
        {"DESTROY", KY_ACCESS_CMD_DESTROY},
        {"BIND", KY_ACCESS_CMD_BIND},
        {"UNBIND", KY_ACCESS_CMD_UNBIND},
        {"SET", KY_ACCESS_CMD_SET},
        {"GET", KY_ACCESS_CMD_GET},
        {"EDIT", KY_ACCESS_CMD_EDIT},
        {"DELETE_ALL", KY_ACCESS_CMD_DELETE_ALL},
        {"DELETE_PORT", KY_ACCESS_CMD_DELETE_PORT},
    };
    return names;
}

const NamedNumbers &sdk_mode_names()
{
    static const NamedNumbers names = {{"802.1Q", KY_BRIDGE_SDK_MODE_802_1Q},
                                       {"802.1D", KY_BRIDGE_SDK_MODE_802_1D},
                                       {"hybrid", KY_BRIDGE_SDK_MODE_HYBRID}};
    return names;
}

const NamedNumbers &tagging_names()
{
    static const NamedNumbers names = {{"tagged", KY_EGRESS_MODE_TAGGED}, {"untagged", KY_EGRESS_MODE_UNTAGGED}};
    return names;
}

const NamedNumbers &direction_names()
{
    static const NamedNumbers names = {{"ingress", KY_ACL_DIRECTION_INGRESS}, {"egress", KY_ACL_DIRECTION_EGRESS}};
    return names;
}

const NamedNumbers &learning_names()
{
    static const NamedNumbers names = {{"off", KY_FDB_LEARN_MODE_DONT_LEARN},
                                       {"auto", KY_FDB_LEARN_MODE_AUTO_LEARN},
                                       {"control", KY_FDB_LEARN_MODE_CONTROL_LEARN}};
    return names;
}

const NamedNumbers &rstp_names()
{
    static const NamedNumbers names = {{"discarding", 0}, {"learning", 1}, {"forwarding", 2}};
    return names;
}

const NamedNumbers &stp_mode_names()
{
    static const NamedNumbers names = {{"mstp", 1}, {"rstp", KY_MSTP_MODE_RSTP}};
    return names;
}

const NamedNumbers &port_kind_names()
{
    static const NamedNumbers names = {{"network", 0}, {"tca", KY_PORT_KIND_TCA_CONNECTOR}};
    return names;
}

const NamedNumbers &verbosity_names()
{
    static const NamedNumbers names = {{"silent", 0}, {"error", 1}, {"notice", 3}, {"debug", 5}, {"trace", 6}};
    return names;
}

std::string name_of(const NamedNumbers &names, std::uint32_t number)
{
    const auto found = std::ranges::find(names, number, &NamedNumber::number);
    return found != names.end() ? found->name : fmt::to_string(number);
}

std::optional<std::uint32_t> number_of(const NamedNumbers &names, std::string_view name)
{
    const auto found = std::ranges::find(names, name, &NamedNumber::name);
    return found != names.end() ? std::optional(found->number) : std::nullopt;
}

std::string numbered_status(std::uint32_t status)
{
    const std::string name = name_of(status_names(), status);
    const std::string number = fmt::to_string(status);
    return name == number ? number : number + " " + name;
}

} // namespace record
