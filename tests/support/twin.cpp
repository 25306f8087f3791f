#include "support/twin.h"

#include <cstdlib>
#include <cstring>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "host/screens/consistency.h"

namespace operations {

namespace {

using Leaves = Failure::Leaves;

/// What a host does after a refused call that left something partial, to have the operation done after all.
std::vector<Operation> repair(const Operation &operation)
{
    Operation first = operation;
    switch (operation.kind) {
    case Kind::learn:
        ++first.value; // the same mode again would write nothing
        return {first, operation};
    case Kind::unbind:
        first.kind = Kind::bind;
        return {first, operation};
    case Kind::announce:
    case Kind::restore:
        first.kind = Kind::clear;
        first.flag = true;
        return {first, operation};
    default:
        return {operation};
    }
}

/// What a stop leaves in the hardware, when nothing refuses, beside regions, ACLs and the VLAN groups of bridges
/// that were bound. @param before the state that was stopped
std::string check_stopped(const State &before)
{
    const sdk::Device &device = sdk::device();
    if (device.memory.bytes() != 0)
        return fmt::format("{} bytes of memory are outstanding\n", device.memory.bytes());
    for (const auto &[number, port] : before.ports) {
        State cleared = before;
        if (predict(cleared, {.kind = Kind::clear, .port = number}).status != KY_STATUS_SUCCESS)
            return ""; // it became a port whose virtual ports cannot be deleted
    }
    std::string findings;
    for (const auto &[region_id, region] : device.acl.regions)
        if (!region.rules.empty())
            findings += fmt::format("region {} still holds rules\n", region_id);
    if (!device.acl.bindings.empty() || !device.vlans.members().empty())
        findings += "bindings or memberships are left over\n";
    for (const auto &[bridge_id, bridge] : before.bridges)
        if (bridge.group != KY_VLAN_GROUP_NONE)
            return findings;
    return findings + (device.acl.vlan_groups.empty() ? "" : "VLAN groups are left over\n");
}

} // namespace

std::string hardware()
{
    return sdk::device().snapshot(false);
}

std::string hardware_but_shared_tagging()
{
    constexpr int last_internal_vlan = 64;
    std::string shown = hardware();
    for (std::size_t at = 0; (at = shown.find("\nvlan ", at)) != std::string::npos; ++at) {
        const std::size_t number = at + std::strlen("\nvlan ");
        const std::size_t end = shown.find('\n', number);
        if (std::atoi(shown.c_str() + number) <= last_internal_vlan) {
            const std::size_t tagging = shown.rfind(' ', end);
            shown.erase(tagging, end - tagging);
        }
    }
    return shown;
}

std::string compare(const char *what, const std::string &expected, const std::string &actual)
{
    return expected == actual ? "" : fmt::format("{} should be\n{}but is\n{}", what, expected, actual);
}

std::string compare(const State &expected, const State &actual)
{
    return actual == expected ? "" : compare("the database", text(expected), text(actual));
}

std::string compare(ky_status_t expected, ky_status_t actual)
{
    return actual == expected ? "" : fmt::format("status {} was answered, not {}\n", actual, expected);
}

std::string compare(const Answer &expected, const Answer &actual)
{
    return actual == expected ? ""
                              : fmt::format("{} {} was answered, not {} {}\n", actual.status, actual.values,
                                            expected.status, expected.values);
}

Failure failure_of(const Operation &operation, const sdk::Call &refused, ky_status_t otherwise)
{
    using sdk::Service;
    const Kind kind = operation.kind;
    const Service service = refused.service;
    const bool clears = kind == Kind::clear || kind == Kind::remove_port;
    const bool announces = kind == Kind::announce || kind == Kind::restore;
    if (kind == Kind::stop)
        return {service == Service::utils_memory_put ? refused.status : ky_status_t{KY_STATUS_SUCCESS},
                Leaves::partial};
    if (clears)
        return {service == Service::bridge_port_set || refused.depth != 0 ? ky_status_t{KY_STATUS_PARAM_ERROR}
                                                                          : refused.status,
                Leaves::partial};
    if (service == Service::port_db_check_port_mode_router_port)
        return {KY_STATUS_PARAM_ERROR, Leaves::unchanged};
    if (service == Service::cl_malloc)
        return {announces ? ky_status_t{KY_STATUS_NO_MEMORY} : ky_status_t{KY_STATUS_NO_RESOURCES}, Leaves::unchanged};
    if (service == Service::swid_validation && (announces || kind == Kind::withdraw))
        return {KY_STATUS_SUCCESS, Leaves::unchanged}; // such an event is ignored
    if (kind == Kind::destroy)
        return {refused.status, Leaves::done};
    // An operation that fails by itself has an undo. An ADD notices an unknown port when its rule is written.
    if (kind == Kind::start && service == Service::utils_memory_put)
        return {otherwise, Leaves::partial}; // not started, but the memory stays with it
    if (kind == Kind::add && deletes_rule(refused, sdk::Direction::ingress))
        return {otherwise, Leaves::partial};
    if (kind == Kind::learn || (kind == Kind::unbind && service == Service::acl_vlan_group_set) ||
        (announces && service == Service::acl_bind_port) ||
        (kind == Kind::remove && deletes_rule(refused, sdk::Direction::egress)))
        return {refused.status, Leaves::partial};
    return {refused.status, Leaves::unchanged};
}

std::string check(bool with_hardware)
{
    std::vector<std::string> findings = consistency::check_database(bridge_db);
    if (with_hardware)
        for (std::string &finding : consistency::check_hardware(bridge_db, sdk::device()))
            findings.push_back(std::move(finding));
    for (const std::string &violation : sdk::device().violations)
        findings.push_back(violation);
    return findings.empty() ? "" : fmt::format("{}\n", fmt::join(findings, "\n"));
}

std::string check_held()
{
    // A group whose destruction was refused is used again without its VLAN, which then cannot be taken out.
    std::erase_if(sdk::device().violations, [](const std::string &text) {
        return text.find("acl_vlan_group_set: VLAN group") != std::string::npos;
    });
    return fmt::format("{}{}", check(false), fmt::join(consistency::check_held(bridge_db, sdk::device()), "\n"));
}

std::string expect_success(const Operation &operation)
{
    const ky_status_t status = apply(operation).status;
    return status == KY_STATUS_SUCCESS ? "" : fmt::format("status {} at the end for {}\n", status, text(operation));
}

std::string give_back(bool port_by_port)
{
    std::string findings;
    if (bridge_db == nullptr)
        return findings;
    const auto give_back_all = [&findings](const auto &map, const auto &give_back_one) {
        for (auto *record = map.first(); record != nullptr && findings.empty();) {
            give_back_one(*record);
            if (map.first() == record)
                findings += "what was given back is still there\n";
            record = map.first();
        }
    };
    const auto give_back_ports = [&] {
        give_back_all(bridge_db->log_port_map, [&findings](const bridge_db_log_port_t &port) {
            findings += expect_success({Kind::clear, 0, port.log_port, 0, 0, true});
        });
    };
    if (port_by_port)
        give_back_ports();
    give_back_all(bridge_db->bridge_map, [&](const bridge_db_bridge_t &bridge) {
        const std::uint32_t bridge_id = bridge.bridge_id;
        give_back_all(bridge.virtual_port_map, [&](const bridge_db_virtual_port_t &vport) {
            findings += expect_success({Kind::remove, bridge_id, vport.log_port, vport.vlan, 0, true});
        });
        for (std::uint32_t references = bridge.ref_cnt; references != 0; --references)
            findings += expect_success({Kind::unreference, bridge_id});
        if (bridge.vlan_group != KY_VLAN_GROUP_NONE) { // what the documents advise where its end was refused
            sdk::device().acl.vlan_groups[bridge.vlan_group].vlans.insert(bridge.int_vlan);
            for (std::uint32_t direction = 0; direction < 2; ++direction) {
                if (bridge.acl_bound[direction] == 0)
                    findings += expect_success({Kind::bind, bridge_id, 0, 0, direction});
                findings += expect_success({Kind::unbind, bridge_id, 0, 0, direction});
            }
        }
        findings += expect_success({Kind::destroy, bridge_id, 0, 0, 0, true});
    });
    give_back_ports();
    const sdk::Device &device = sdk::device();
    if (!device.acl.bindings.empty() || !device.vlans.members().empty())
        findings += "bindings or memberships are left over\n";
    return findings + check_held();
}

Twin::Twin(const Domain &domain, const Path &path) : domain_(domain), expected_(reach(domain, path)) {}

void Twin::power_off_and_on()
{
    power_on(domain_);
    expected_ = {};
    uncertain_ = 0;
    restarted_ = true;
}

std::string Twin::run_without_fault(const Operation &operation)
{
    const State before = expected_;
    const Answer predicted = predict(expected_, operation);
    std::string findings = compare(predicted, apply(operation));
    findings += compare(expected_) + check();
    if (operation.kind == Kind::stop) {
        findings += check_stopped(before);
        power_off_and_on(); // regions, and VLAN groups of bridges that were bound, stay behind
    }
    return findings;
}

std::string Twin::run_uncertain(const Step &step)
{
    std::vector<sdk::Call> failed;
    apply(step, failed);
    std::string findings = check_held();
    if (--uncertain_ == 0 || step.operation.kind == Kind::stop)
        power_off_and_on();
    return findings;
}

std::string Twin::check_failure(const Operation &operation, const sdk::Call &refused, ky_status_t status,
                                const std::string &hardware_before)
{
    State after = expected_;
    const Failure failure = failure_of(operation, refused, predict(after, operation).status);
    std::string findings = compare(failure.status, status);
    if (failure.leaves == Leaves::unchanged)
        return findings + compare(expected_) + compare("the hardware", hardware_before, hardware_but_shared_tagging()) +
               check();

    expected_ = after;
    if (failure.leaves == Leaves::done)
        return findings + compare(expected_) + check();

    findings += check(false);
    if (operation.kind == Kind::start || operation.kind == Kind::stop) {
        power_off_and_on();
        return findings;
    }
    for (const Operation &next : repair(operation))
        apply(next);
    if (!compare(expected_).empty() || !check().empty())
        uncertain_ = 20;
    return findings;
}

std::string Twin::run(const Step &step)
{
    const Operation &operation = step.operation;
    restarted_ = has_refused_ = false;
    if (operation.kind == Kind::start && bridge_db != nullptr)
        return ""; // a host does not do that
    if (uncertain_ != 0)
        return run_uncertain(step);
    if (step.failing_calls.empty())
        return run_without_fault(operation);

    const std::string hardware_before = hardware_but_shared_tagging();
    std::vector<sdk::Call> failed;
    const Answer answer = apply(step, failed);
    has_refused_ = !failed.empty();
    if (has_refused_)
        return check_failure(operation, failed.front(), answer.status, hardware_before);
    const Answer predicted = predict(expected_, operation); // it makes fewer calls
    std::string findings = compare(predicted.status, answer.status) + compare(expected_) + check();
    if (operation.kind == Kind::stop)
        power_off_and_on();
    return findings;
}

std::string run_twin(const Domain &domain, const std::vector<Step> &steps)
{
    Twin twin(domain);
    for (const Step &step : steps)
        if (std::string findings = twin.run(step); !findings.empty())
            return &step == &steps.back() ? findings : "";
    return "";
}

} // namespace operations
