#include "record/script.h"

#include <algorithm>
#include <map>
#include <set>

#include <fmt/format.h>

#include "record/names.h"
#include "record/show.h"

namespace record {

namespace {

using Kind = format::Kind;

std::string log_port_text(std::uint64_t log_port)
{
    return fmt::format("0x{:08X}", log_port);
}

/// The service calls inside a call, those of nested calls among them, in their order.
void collect_services(const RecordedCall &call, std::vector<const RecordedCall *> &services)
{
    for (const RecordedCall &inner : call.inner) {
        if (inner.kind == Kind::service)
            services.push_back(&inner);
        collect_services(inner, services);
    }
}

/// What the stand-in would answer, followed along the script. A new stand-in has no ports and serves SWID 0, and its
/// ACL manager counts its identifiers from 1.
struct StandIn {
    struct Port {
        std::uint64_t swid = 0;
        std::uint64_t rstp = 2; // forwarding
        bool router = false;
        bool lag_member = false;
    };
    std::map<std::uint64_t, Port> ports;
    bool swid_validated = true;
    std::set<std::uint64_t> served_swids = {0};
    std::map<std::uint64_t, std::uint64_t> mstp_modes;
    std::uint64_t next_region = 1;
    std::uint64_t next_acl = 1;
    std::uint64_t next_group = 1;
};

class Translator {
public:
    /// Appends a call's lines.
    void translate(const RecordedCall &call);
    std::string &text() { return text_; }

private:
    void line(const std::string &command) { text_ += command + "\n"; }
    StandIn::Port &port(std::uint64_t log_port);
    void prepare(const RecordedCall &service);
    void prepare_identifier(const RecordedCall &service);
    void plan_faults(const std::vector<const RecordedCall *> &services);
    std::string command_of(const RecordedCall &call);
    std::string event_command(const RecordedCall &event);

    StandIn stand_in_;
    std::string text_;
};

/// The stand-in's port, made if it is new.
StandIn::Port &Translator::port(std::uint64_t log_port)
{
    const auto [found, is_new] = stand_in_.ports.try_emplace(log_port);
    if (is_new)
        line("port add " + log_port_text(log_port));
    return found->second;
}

/// Sets a value of the stand-in if it is another, by a command that is written only then.
template <typename T, typename Command> void follow(T &value, T wanted, Command command)
{
    if (value == wanted)
        return;
    value = wanted;
    command();
}

/// Lets the stand-in's ACL manager hand out the identifier that the SDK's handed out.
void Translator::prepare_identifier(const RecordedCall &service)
{
    const auto hand_out = [&](std::uint64_t &next, std::uint64_t handed_out, const char *what) {
        follow(next, handed_out, [&] { line(fmt::format("acl next {} {}", what, handed_out)); });
        ++next;
    };
    if (service.answer != 0 || service.answered.empty() || !service.answered[0])
        return;
    const Value &answered = *service.answered[0];
    if (service.is(Service::acl_region_set)) {
        if (const auto region = record_of<ky_acl_region_params_t>(answered); region.cmd == KY_ACCESS_CMD_CREATE)
            hand_out(stand_in_.next_region, region.region_id, "region");
    } else if (service.is(Service::acl_set)) {
        if (const auto acl = record_of<ky_acl_params_t>(answered); acl.cmd == KY_ACCESS_CMD_CREATE)
            hand_out(stand_in_.next_acl, acl.acl_id, "acl");
    } else if (service.is(Service::acl_vlan_group_set)) {
        if (const auto group = record_of<ky_acl_vlan_group_params_t>(answered); group.cmd == KY_ACCESS_CMD_CREATE)
            hand_out(stand_in_.next_group, group.vlan_group, "group");
    }
}

/// Brings the stand-in to where it answers a call as the SDK did.
void Translator::prepare(const RecordedCall &service)
{
    const auto sent = [&](std::size_t index) { return service.sent[index].number; };
    const bool succeeded = service.answer == 0;
    const std::uint64_t result =
        succeeded && service.answered.size() > 2 && service.answered[2] ? service.answered[2]->number : 0;
    switch (static_cast<Service>(service.number)) {
    case Service::swid_validation:
        if (succeeded && stand_in_.served_swids.insert(sent(0)).second)
            line(fmt::format("swid serve {}", sent(0)));
        if (service.answer == KY_STATUS_PARAM_ERROR && stand_in_.served_swids.erase(sent(0)) != 0)
            line(fmt::format("swid ignore {}", sent(0)));
        break;
    case Service::port_db_check_port_mode_router_port:
        if (succeeded || stand_in_.ports.contains(sent(0)))
            follow(port(sent(0)).router, succeeded, [&] {
                line(fmt::format("port set {} router {}", log_port_text(sent(0)), succeeded ? "on" : "off"));
            });
        break;
    case Service::port_swid_alloc_get:
        if (succeeded)
            follow(port(sent(1)).swid, result,
                   [&] { line(fmt::format("port add {} swid {}", log_port_text(sent(1)), result)); });
        break;
    case Service::port_lag_member_state_get:
        if (succeeded)
            follow(port(sent(1)).lag_member, result != 0, [&] {
                line(fmt::format("port set {} lag {}", log_port_text(sent(1)), result != 0 ? "on" : "off"));
            });
        break;
    case Service::mstp_mode_get:
        if (succeeded)
            follow(stand_in_.mstp_modes.try_emplace(sent(1), KY_MSTP_MODE_RSTP).first->second, result,
                   [&] { line(fmt::format("swid mode {} {}", sent(1), result)); });
        break;
    case Service::rstp_port_state_get:
        if (succeeded && result < rstp_names().size())
            follow(port(sent(1)).rstp, result, [&] {
                line(fmt::format("port set {} rstp {}", log_port_text(sent(1)),
                                 name_of(rstp_names(), static_cast<std::uint32_t>(result))));
            });
        break;
    case Service::rstp_port_state_set:
        if (succeeded)
            port(sent(1)).rstp = sent(2);
        break;
    case Service::vlan_port_multi_vlans_set:
        if (succeeded)
            port(sent(1));
        break;
    default:
        prepare_identifier(service);
        break;
    }
}

void Translator::plan_faults(const std::vector<const RecordedCall *> &services)
{
    std::map<std::uint8_t, unsigned> calls;
    for (const RecordedCall *service : services) {
        const unsigned nth = ++calls[service->number];
        const bool is_refused_anyway =
            service->is(Service::swid_validation) && service->answer == KY_STATUS_PARAM_ERROR;
        if (!service->is_refused() || is_refused_anyway)
            continue;
        const auto status =
            static_cast<ky_status_t>(service->is(Service::cl_malloc) ? +KY_STATUS_NO_MEMORY : service->answer);
        line(fmt::format("fail {} {} with {}", service->callable->name, nth == 1 ? "next" : fmt::to_string(nth),
                         name_of(status_names(), status)));
    }
}

std::string Translator::event_command(const RecordedCall &event)
{
    const auto record = record_of<ky_port_event_t>(event.sent[1]);
    const std::uint64_t type = event.sent[0].number;
    const bool is_known = type == KY_ADVISER_EVENT_PORT_ADD_INTO_SWID || type == KY_ADVISER_EVENT_PORT_DEL_FROM_SWID;
    if (!is_known || event.sent[1].is_null)
        return "";
    const std::string log_port = log_port_text(record.log_port);
    const std::string described =
        fmt::format("{} swid {} kind {}", log_port, record.swid, name_of(port_kind_names(), record.port_kind));
    stand_in_.ports[record.log_port].swid = record.swid;
    if (type == KY_ADVISER_EVENT_PORT_ADD_INTO_SWID)
        return "port announce " + described;
    line("port add " + described);
    return "port withdraw " + log_port;
}

/// The command that makes a call, the plain one where it says all; empty: there is none.
std::string Translator::command_of(const RecordedCall &call)
{
    if (call.kind == Kind::event)
        return event_command(call);
    const auto sent = [&](std::size_t index) { return call.sent[index].number; };
    const auto flag = [&](std::size_t index, const char *word) { return sent(index) != 0 ? std::string(word) : ""; };
    const auto name = [](const NamedNumbers &names, std::uint64_t number) {
        return name_of(names, static_cast<std::uint32_t>(number));
    };
    std::string any = fmt::format("call {} {}", call.callable->name, arguments_by_name(call));
    switch (static_cast<Function>(call.number)) {
    case Function::ky_bridge_init: {
        if (call.sent[0].is_null)
            return any;
        const auto parameters = record_of<ky_bridge_init_params_t>(call.sent[0]);
        const auto &sizes = parameters.sdk_mode_params.mode_1D;
        return fmt::format("start mode {} bridges {} virtual-ports {} multiple-vlan {}",
                           name(sdk_mode_names(), parameters.sdk_mode), sizes.max_bridge_num,
                           sizes.max_virtual_ports_num, sizes.multiple_vlan_bridge_mode);
    }
    case Function::ky_bridge_deinit:
        return "stop";
    case Function::ky_bridge_log_verbosity_level_set:
        return "verbosity " + name(verbosity_names(), sent(0));
    case Function::ky_bridge_set:
        if (call.sent[1].is_null || sent(2) > 1)
            return any;
        if (sent(0) == KY_ACCESS_CMD_CREATE)
            return "bridge create" + flag(2, " internal");
        return sent(0) == KY_ACCESS_CMD_DESTROY ? fmt::format("bridge destroy {}{}", sent(1), flag(2, " internal"))
                                                : any;
    case Function::ky_bridge_ref_cnt_increase:
        return fmt::format("bridge ref {}", sent(0));
    case Function::ky_bridge_ref_cnt_decrease:
        return fmt::format("bridge unref {}", sent(0));
    case Function::ky_bridge_port_set:
        if (sent(5) > 1 || (sent(0) != KY_ACCESS_CMD_ADD && sent(0) != KY_ACCESS_CMD_DELETE))
            return any;
        return fmt::format("vport {} {} {} vlan {} {}{}", sent(0) == KY_ACCESS_CMD_ADD ? "add" : "delete", sent(1),
                           log_port_text(sent(2)), sent(3), name(tagging_names(), sent(4)), flag(5, " internal"));
    case Function::ky_bridge_clear_port:
        return sent(1) > 1 ? any : fmt::format("port clear {}{}", log_port_text(sent(0)), flag(1, " release"));
    case Function::ky_bridge_clear_undo:
        return fmt::format("port restore {} swid {}", log_port_text(sent(0)), sent(1));
    case Function::ky_bridge_set_learning_mode:
        return sent(2) > 1
                   ? any
                   : fmt::format("learning {} {}{}", sent(0), name(learning_names(), sent(1)), flag(2, " internal"));
    case Function::ky_bridge_int_vlan_group_set:
        if (sent(0) == KY_ACCESS_CMD_BIND && !call.sent[3].is_null)
            return fmt::format("bind {} {}", sent(1), name(direction_names(), sent(2)));
        return sent(0) == KY_ACCESS_CMD_UNBIND ? fmt::format("unbind {} {}", sent(1), name(direction_names(), sent(2)))
                                               : any;
    default:
        return any;
    }
}

void Translator::translate(const RecordedCall &call)
{
    line(fmt::format("# {}{}", call.id, call.others_inside ? ", while another thread was inside" : ""));
    if (call.limits)
        line(fmt::format("limits bridges {} ports {}", call.limits->max_bridges, call.limits->max_log_ports));
    follow(stand_in_.swid_validated, call.swid_validated,
           [&] { line(fmt::format("swid validation {}", call.swid_validated ? "on" : "off")); });
    std::vector<const RecordedCall *> services;
    collect_services(call, services);
    for (const RecordedCall *service : services)
        prepare(*service);
    const std::string command = command_of(call);
    if (command.empty()) {
        line("# no command makes this call: an event that ports do not have");
        return;
    }
    plan_faults(services);
    line((call.answer != 0 ? "expect " + name_of(status_names(), static_cast<std::uint32_t>(call.answer)) + " " : "") +
         command);
}

} // namespace

std::string script_of(Reader &reader, std::uint64_t until)
{
    Translator translator;
    translator.text() = fmt::format("# what {} did\n", reader.header().program);
    while (const auto call = reader.next()) {
        if (call->id > until)
            break;
        translator.translate(*call);
    }
    return translator.text();
}

} // namespace record
