#include "conform/model/operations.h"

#include <array>

#include <fmt/args.h>
#include <fmt/format.h>

#include "bridge/db.h"
#include "conform/model/symbols.h"

namespace operations {

namespace {

struct Form {
    bool is_question;
    std::string_view text;
    std::string_view text_with_null;
};

#define KYBRIDGE_CHANGE(kind, ...) Form{false, __VA_ARGS__},
#define KYBRIDGE_QUESTION(kind, ...) Form{true, __VA_ARGS__},
constexpr std::array forms = {KYBRIDGE_OPERATIONS(KYBRIDGE_CHANGE, KYBRIDGE_QUESTION)};
#undef KYBRIDGE_CHANGE
#undef KYBRIDGE_QUESTION

const Form &form(Kind kind)
{
    return forms.at(static_cast<std::size_t>(kind));
}

bool takes(const Form &form, std::string_view argument)
{
    return form.text.find(argument) != std::string_view::npos;
}

/// The choices for each argument of an operation; 0 alone for one that it does not take.
struct Choices {
    std::vector<std::uint32_t> bridges = {0}, ports = {0}, vlans = {0}, values = {0};
    bool flag = false; ///< there may be one
    bool null = false; ///< its pointer may be NULL
};

Choices choices(const Domain &domain, const Form &form)
{
    using Numbers = std::vector<std::uint32_t>;
    Choices of;
    const auto take = [&form](std::string_view argument, Numbers &list, Numbers numbers, const Numbers &more = {}) {
        if (!takes(form, argument))
            return;
        list = std::move(numbers);
        list.insert(list.end(), more.begin(), more.end());
    };
    take("{bridge}", of.bridges, domain.bridges);
    take("{port}", of.ports, domain.ports);
    take("{port_or_all}", of.ports, domain.ports, {0});
    take("{vlan}", of.vlans, domain.vlans);
    take("{value}", of.values, {0, 1}, domain.extra_values);
    take("{swid}", of.values, {0}, domain.extra_values);
    take("{capacity}", of.values, {0, 1, 4}, domain.extra_values);
    of.flag = takes(form, "{internal}") || takes(form, "{release}") || takes(form, "{flag}");
    of.null = !form.text_with_null.empty();
    return of;
}

} // namespace

bool is_question(Kind kind)
{
    return form(kind).is_question;
}

std::string text(const Operation &operation)
{
    const Form &chosen = form(operation.kind);
    const std::string_view chosen_text = operation.null ? chosen.text_with_null : chosen.text;
    return fmt::format(
        fmt::runtime(chosen_text), fmt::arg("bridge", operation.bridge), fmt::arg("port", operation.port),
        fmt::arg("port_or_all", operation.port), fmt::arg("vlan", operation.vlan), fmt::arg("value", operation.value),
        fmt::arg("swid", operation.value), fmt::arg("capacity", operation.value),
        fmt::arg("flag", operation.flag ? 1 : 0), fmt::arg("internal", operation.flag ? " internal" : ""),
        fmt::arg("release", operation.flag ? " release" : ""));
}

namespace {

/// A kind of operation, such that much happens: mostly virtual ports come and seldom all goes.
Kind any_kind(const Below &below)
{
    const auto kind = static_cast<Kind>(below(forms.size()));
    const bridge_db_t *const db = PROCESS_SYMBOL(bridge_db);
    if ((db == nullptr || db->sdk_mode == KY_BRIDGE_SDK_MODE_802_1Q) && below(4) != 0)
        return db == nullptr ? Kind::start : Kind::stop;
    if (kind == Kind::stop && below(20) != 0)
        return Kind::create;
    if ((kind == Kind::clear || kind == Kind::remove_port) && below(8) != 0)
        return Kind::announce;
    if (is_question(kind) && below(3) != 0)
        return below(3) == 0 ? Kind::remove : Kind::add;
    return kind;
}

Operation any_of_kind(const Domain &domain, const Below &below, Kind kind)
{
    const auto one_of = [&below](const auto &list) {
        const auto size = static_cast<std::uint32_t>(list.size());
        return list[below(below(4) == 0 ? size : std::min(size, 2U))]; // mostly of the first, so that they meet
    };
    if (kind == Kind::start)
        return one_of(domain.starts);
    const Choices of = choices(domain, form(kind));
    Operation operation{kind};
    operation.bridge = one_of(of.bridges);
    operation.port = one_of(of.ports);
    operation.vlan = one_of(of.vlans);
    operation.value = one_of(of.values);
    if (takes(form(kind), "{swid}"))
        operation.value &= 0xFF;
    operation.flag = of.flag && below(4) == 0;
    operation.null = of.null && below(8) == 0;
    return operation;
}

} // namespace

std::vector<Operation> every_operation(const Domain &domain)
{
    std::vector<Operation> all = domain.starts;
    for (unsigned number = 0; number < forms.size(); ++number) {
        const auto kind = static_cast<Kind>(number);
        if (kind == Kind::start)
            continue;
        const Choices of = choices(domain, form(kind));
        for (const std::uint32_t bridge : of.bridges)
            for (const std::uint32_t port : of.ports)
                for (const std::uint32_t vlan : of.vlans)
                    for (const std::uint32_t value : of.values)
                        for (unsigned flag = 0; flag <= (of.flag ? 1 : 0); ++flag)
                            for (unsigned null = 0; null <= (of.null ? 1 : 0); ++null)
                                all.push_back({kind, bridge, port, vlan, value, flag != 0, null != 0});
    }
    return all;
}

Operation any_operation(const Domain &domain, const Below &below)
{
    return any_of_kind(domain, below, any_kind(below));
}

Domain border_domain()
{
    return {.bridges = {1, 2, 3, 4, 5, 0, 0xFFFF},
            .ports = {0x10001, 0x10002, 0x10003, 0x10004, 0x8000000, 0xFFFFFFFF},
            .vlans = {1, 100, 2, 3, 0, 4094, 4095, 0xFFFF},
            .extra_values = {1, 2, 0xFFFFFFFF},
            .starts = {{Kind::start, 4, 0, 6, KY_BRIDGE_SDK_MODE_802_1D}, // the first two are the usual ones
                       {Kind::start, 64, 0, 512, KY_BRIDGE_SDK_MODE_802_1D},
                       {Kind::start, 1, 0, 1, KY_BRIDGE_SDK_MODE_802_1D},
                       {Kind::start, 0, 0, 1, KY_BRIDGE_SDK_MODE_802_1D},
                       {Kind::start, 65, 0, 1, KY_BRIDGE_SDK_MODE_802_1D},
                       {Kind::start, 4, 0, 0, KY_BRIDGE_SDK_MODE_802_1D},
                       {Kind::start, 4, 0, 513, KY_BRIDGE_SDK_MODE_802_1D},
                       {Kind::start, 4, 1, 6, KY_BRIDGE_SDK_MODE_802_1D},
                       {Kind::start, 4, 2, 6, KY_BRIDGE_SDK_MODE_802_1D},
                       {Kind::start, 4, 0, 6, KY_BRIDGE_SDK_MODE_802_1Q},
                       {Kind::start, 4, 1, 6, KY_BRIDGE_SDK_MODE_802_1Q},
                       {Kind::start, 4, 0, 6, KY_BRIDGE_SDK_MODE_HYBRID},
                       {Kind::start, 4, 0, 6, 0xFFFFFFFF}},
            .max_log_ports = 5};
}

namespace {

Answer call(const Operation &operation, const Deliver &deliver)
{
    const auto bridge_id = static_cast<std::uint16_t>(operation.bridge);
    const auto vlan = static_cast<std::uint16_t>(operation.vlan);
    const auto swid = static_cast<std::uint8_t>(operation.value);
    const std::uint32_t flag = operation.flag ? 1 : 0;
    std::uint16_t number16 = 0;
    std::uint16_t *const pointer16 = operation.null ? nullptr : &number16;
    std::uint32_t number32 = 0;
    std::uint32_t egress_acl = 0;
    std::uint32_t *const pointer32 = operation.null ? nullptr : &number32;
    switch (operation.kind) { // members of the answers below are evaluated in their order
    case Kind::start: {
        const ky_bridge_init_params_t params = {operation.value, {{operation.bridge, operation.vlan, operation.port}}};
        return {PROCESS_SYMBOL(ky_bridge_init)(&params)};
    }
    case Kind::stop:
        return {PROCESS_SYMBOL(ky_bridge_deinit)()};
    case Kind::create:
        return {PROCESS_SYMBOL(ky_bridge_set)(KY_ACCESS_CMD_CREATE, pointer16, flag), {number16}};
    case Kind::destroy:
        number16 = bridge_id;
        return {PROCESS_SYMBOL(ky_bridge_set)(KY_ACCESS_CMD_DESTROY, pointer16, flag)};
    case Kind::reference:
        return {PROCESS_SYMBOL(ky_bridge_ref_cnt_increase)(bridge_id)};
    case Kind::unreference:
        return {PROCESS_SYMBOL(ky_bridge_ref_cnt_decrease)(bridge_id)};
    case Kind::add:
        return {PROCESS_SYMBOL(ky_bridge_port_set)(KY_ACCESS_CMD_ADD, bridge_id, operation.port, vlan, operation.value,
                                                   flag)};
    case Kind::remove:
        return {PROCESS_SYMBOL(ky_bridge_port_set)(KY_ACCESS_CMD_DELETE, bridge_id, operation.port, vlan,
                                                   operation.value, flag)};
    case Kind::remove_port:
        return {PROCESS_SYMBOL(ky_bridge_port_set)(KY_ACCESS_CMD_DELETE_PORT, 0, operation.port, 0, 0, 0)};
    case Kind::announce:
        return {deliver(KY_ADVISER_EVENT_PORT_ADD_INTO_SWID, operation.port, swid)};
    case Kind::withdraw:
        return {deliver(KY_ADVISER_EVENT_PORT_DEL_FROM_SWID, operation.port, swid)};
    case Kind::clear:
        return {PROCESS_SYMBOL(ky_bridge_clear_port)(operation.port, flag)};
    case Kind::restore:
        return {PROCESS_SYMBOL(ky_bridge_clear_undo)(operation.port, swid)};
    case Kind::learn:
        return {PROCESS_SYMBOL(ky_bridge_set_learning_mode)(bridge_id, operation.value, flag)};
    case Kind::bind:
        return {PROCESS_SYMBOL(ky_bridge_int_vlan_group_set)(KY_ACCESS_CMD_BIND, bridge_id, operation.value, pointer16),
                {number16}};
    case Kind::unbind:
        return {
            PROCESS_SYMBOL(ky_bridge_int_vlan_group_set)(KY_ACCESS_CMD_UNBIND, bridge_id, operation.value, nullptr)};
    case Kind::port_list: {
        std::array<ky_bridge_port_t, 8> list = {};
        number32 = std::min<std::uint32_t>(operation.value, list.size());
        Answer answer{PROCESS_SYMBOL(ky_bridge_port_get)(bridge_id, list.data(), pointer32, flag), {number32}};
        for (const ky_bridge_port_t &entry : list)
            if (entry.log_port != 0)
                answer.values.insert(answer.values.end(), {entry.log_port, entry.vlan, entry.egress_mode});
        return answer;
    }
    case Kind::int_vlan:
        return {PROCESS_SYMBOL(ky_bridge_int_vlan_id_get)(bridge_id, pointer16, flag), {number16}};
    case Kind::int_vlan_list: {
        std::array<std::uint16_t, 8> list = {};
        number32 = std::min<std::uint32_t>(operation.value, list.size());
        Answer answer{PROCESS_SYMBOL(ky_bridge_int_vlan_list_get)(operation.port, list.data(), pointer32), {number32}};
        for (const std::uint16_t vid : list)
            if (vid != 0)
                answer.values.push_back(vid);
        return answer;
    }
    case Kind::int_vlan_owner:
        return {PROCESS_SYMBOL(ky_bridge_int_vlan_bridge_id_get)(vlan, pointer16), {number16}};
    case Kind::member_state:
        return {PROCESS_SYMBOL(ky_bridge_log_port_member_state)(0, operation.port)};
    case Kind::group:
        return {PROCESS_SYMBOL(ky_bridge_int_vlan_group_get)(bridge_id, pointer16), {number16}};
    case Kind::port_acls:
        return {PROCESS_SYMBOL(ky_bridge_port_acl_binding_get)(operation.port, pointer32,
                                                               operation.null ? nullptr : &egress_acl),
                {number32, egress_acl}};
    case Kind::learning:
        return {PROCESS_SYMBOL(ky_bridge_get_learning_mode)(bridge_id, pointer32, flag), {number32}};
    case Kind::mode:
        return {PROCESS_SYMBOL(ky_bridge_mode_get)(pointer32), {number32}};
    }
    return {};
}

} // namespace

Answer carry_out(const Operation &operation, const Deliver &deliver)
{
    const bool can_answer = operation.kind == Kind::mode || (PROCESS_SYMBOL(bridge_db) != nullptr && !operation.null);
    Answer answer = call(operation, deliver);
    if (!can_answer || answer.status != KY_STATUS_SUCCESS)
        answer.values.clear();
    return answer;
}

} // namespace operations
