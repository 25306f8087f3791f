#include "support/steps.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

namespace operations {

namespace {

/// Delivers an event as the adviser does, once the port is in its partition.
ky_status_t deliver(std::uint32_t event_type, std::uint32_t log_port, std::uint8_t swid)
{
    ky_port_event_t event = {};
    event.log_port = log_port;
    if (event_type == KY_ADVISER_EVENT_PORT_ADD_INTO_SWID)
        sdk::device().ports.ports[log_port].swid = swid;
    event.swid = sdk::device().ports.ports[log_port].swid;
    return sdk::device().adviser.deliver(event_type, event);
}

/// The ACL that the module's regions of a direction carry: the last one that was made.
std::uint32_t acl_of(sdk::Direction direction)
{
    std::uint32_t found = 0;
    for (const auto &[acl_id, acl] : sdk::device().acl.acls)
        if (acl.direction == direction)
            found = acl_id;
    return found;
}

ky_status_t check_port(std::uint32_t log_port)
{
    const sdk::Device &device = sdk::device();
    const sdk::Port *const port = device.ports.find(log_port);
    if (port == nullptr)
        return KY_STATUS_ENTRY_NOT_FOUND;
    return port->router_port || !device.bridge_swids.contains(port->swid) || port->lag_member ? KY_STATUS_PARAM_ERROR
                                                                                              : KY_STATUS_SUCCESS;
}

} // namespace

std::vector<Step> steps(const Path &path)
{
    std::vector<Step> steps;
    for (const Operation &operation : path)
        steps.push_back({operation});
    return steps;
}

Path path(const std::vector<Step> &steps)
{
    Path path;
    for (const Step &step : steps)
        path.push_back(step.operation);
    return path;
}

Step any_step(const Domain &domain, const Below &below)
{
    Step step{any_operation(domain, below)};
    if (below(6) == 0) { // most operations make fewer calls than that
        step.failing_calls = {1 + below(14)};
        step.fault = below(2) == 0 ? 77 : 200; // statuses of another module
    }
    return step;
}

void power_on(const Domain &domain)
{
    sdk::Device &device = sdk::device();
    device.faults.clear();
    ky_bridge_deinit();
    device.reset();
    sdk::set_limits(64, domain.max_log_ports);
    device.journal.keep(0);
    device.bridge_port_set = ky_bridge_port_set;
    device.bridge_swids = {0, 1};
    device.mstp_modes[1] = KY_MSTP_MODE_RSTP + 1;
    for (const std::uint32_t port : domain.ports)
        device.ports.ports[port];
    swid_validation_func_ptr = sdk_validate_swid;
}

Answer apply(const Operation &operation)
{
    sdk::AclManager &acl = sdk::device().acl;
    if (acl.acls.empty())
        acl.next_region_id = acl.next_acl_id = 1;
    acl.next_vlan_group = static_cast<std::uint16_t>(operation.bridge);
    return carry_out(operation, deliver);
}

Answer predict(State &state, const Operation &operation)
{
    return predict(state, operation,
                   {.limits = rm_resource_global,
                    .check_port = check_port,
                    .serves = [](std::uint8_t swid) { return sdk::device().bridge_swids.contains(swid); },
                    .acls = {acl_of(sdk::Direction::ingress), acl_of(sdk::Direction::egress)},
                    .next_group = operation.bridge}); // see apply()
}

State reach(const Domain &domain, const Path &path)
{
    power_on(domain);
    State state;
    for (const Operation &operation : path) {
        predict(state, operation);
        apply(operation);
    }
    return state;
}

Answer apply(const Step &step, std::vector<sdk::Call> &failed)
{
    sdk::Device &device = sdk::device();
    for (const unsigned call : step.failing_calls)
        device.faults.fail_any(call, step.fault);
    device.on_call = [&failed](const sdk::Call &call) {
        if (call.planned)
            failed.push_back(call);
    };
    Answer answer = apply(step.operation);
    device.faults.clear();
    device.on_call = nullptr;
    return answer;
}

bool deletes_rule(const sdk::Call &call, sdk::Direction direction)
{
    if (call.service != sdk::Service::acl_rules_set)
        return false;
    ky_acl_rules_params_t sent;
    std::memcpy(&sent, call.sent.data(), sizeof sent);
    const auto &acls = sdk::device().acl.acls;
    return sent.cmd == KY_ACCESS_CMD_DELETE && std::any_of(acls.begin(), acls.end(), [&](const auto &acl) {
               return acl.second.region_id == sent.region_id && acl.second.direction == direction;
           });
}

std::vector<Step> shrink(std::vector<Step> steps, const std::function<bool(const std::vector<Step> &)> &fails)
{
    for (std::size_t piece = std::max<std::size_t>(steps.size() / 2, 1); piece != 0; piece /= 2)
        for (std::size_t at = 0; at + piece < steps.size();) {
            std::vector<Step> shorter = steps;
            const auto first = shorter.begin() + static_cast<std::ptrdiff_t>(at);
            shorter.erase(first, first + static_cast<std::ptrdiff_t>(piece));
            if (fails(shorter))
                steps = std::move(shorter);
            else
                at += piece;
        }
    for (std::size_t at = 0; at < steps.size(); ++at)
        for (std::size_t fault = steps[at].failing_calls.size(); fault-- != 0;) {
            std::vector<Step> fewer = steps;
            auto &calls = fewer[at].failing_calls;
            calls.erase(calls.begin() + static_cast<std::ptrdiff_t>(fault));
            if (fails(fewer))
                steps = std::move(fewer);
        }
    return steps;
}

std::string script(const Domain &domain, const std::vector<Step> &steps)
{
    std::string lines =
        fmt::format("limits bridges 64 ports {}\nswid serve 1\nswid mode 1 mstp\n", domain.max_log_ports);
    for (const std::uint32_t port : domain.ports)
        lines += fmt::format("port add {}\n", port);
    for (const Step &step : steps) {
        for (const unsigned call : step.failing_calls)
            lines += fmt::format("fail any {} with {}\n", call, step.fault);
        lines += text(step.operation) + "\n";
        if (!step.failing_calls.empty())
            lines += "faults clear\n";
    }
    return lines;
}

std::string shortest(const Domain &domain, const std::vector<Step> &steps,
                     const std::function<std::string(const std::vector<Step> &)> &findings)
{
    const std::vector<Step> left =
        shrink(steps, [&findings](const std::vector<Step> &fewer) { return !findings(fewer).empty(); });
    const std::string found = findings(left);
    return fmt::format("{}\nthe shortest sequence found, as a script for kybridge-host:\n\n{}",
                       found.empty() ? "repeated from power-on, it does not fail\n" : found, script(domain, left));
}

} // namespace operations
