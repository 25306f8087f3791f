// Any number of refused calls, anywhere, undo and restoring steps included: nobody but the virtual port operated on
// is disturbed, and once the SDK answers again everything can be given back and taken anew.
// KYBRIDGE_RANDOM_OPERATIONS sets how many operations, KYBRIDGE_RANDOM_SEED which.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <random>
#include <set>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "support/effort.h"
#include "support/twin.h"

using namespace operations;

namespace {

/// Two ports in three bridges, whose internal VLANs are users' VLANs as well.
const Domain domain = {.bridges = {1, 2, 3},
                       .ports = {0x10001, 0x10002},
                       .vlans = {1, 2, 100},
                       .extra_values = {},
                       .starts = {{Kind::start, 3, 0, 6, KY_BRIDGE_SDK_MODE_802_1D}},
                       .max_log_ports = 2};

using Holdings = std::map<std::pair<std::uint32_t, std::uint32_t>, std::array<bool, 4>>;

/// What the virtual ports hold, by port and VLAN: ingress rule, egress rule, egress binding, VLANs.
Holdings read_holdings()
{
    Holdings holdings;
    for (auto *bridge = bridge_db->bridge_map.first(); bridge != nullptr; bridge = bridge_db->bridge_map.next(bridge))
        for (auto *vport = bridge->virtual_port_map.first(); vport != nullptr;
             vport = bridge->virtual_port_map.next(vport))
            holdings[{vport->log_port, vport->vlan}] = {vport->ingress_offset != nullptr,
                                                        vport->egress_offset != nullptr, vport->holds_eacl_binding,
                                                        vport->holds_vlans};
    return holdings;
}

/// Whether an operation works on a virtual port.
bool concerns(const Operation &operation, std::uint32_t port, std::uint32_t vlan)
{
    const bool whole_port = operation.kind == Kind::clear || operation.kind == Kind::remove_port;
    return operation.port == port && (whole_port || operation.vlan == vlan);
}

std::string compare_holdings(const Operation &operation, const Holdings &before, const Holdings &after)
{
    for (const auto &[pair, held] : before) {
        const auto found = after.find(pair);
        std::array<bool, 4> expected = held;
        if (operation.kind == Kind::learn && found != after.end())
            expected[0] |= found->second[0]; // writing a rule that was lost gives it back
        if (!concerns(operation, pair.first, pair.second) && (found == after.end() || found->second != expected))
            return fmt::format("virtual port (0x{:X}, {}) was disturbed\n", pair.first, pair.second);
    }
    return "";
}

using Rules = std::set<std::pair<std::uint32_t, std::uint16_t>>; ///< by region and offset

Rules written_rules()
{
    Rules rules;
    for (const auto &[region_id, region] : sdk::device().acl.regions)
        for (const auto &[offset, rule] : region.rules)
            rules.insert({region_id, offset});
    return rules;
}

std::pair<std::uint32_t, std::uint16_t> place_of_rule(const sdk::Call &call)
{
    ky_acl_rules_params_t sent;
    std::memcpy(&sent, call.sent.data(), sizeof sent);
    return {sent.region_id, sent.offset};
}

/// Announces the ports and attaches as many virtual ports as there can be.
/// @return the calls of it, without the places of rules, which depend on what was freed last
std::string attach_a_full_set()
{
    std::string calls;
    sdk::device().on_call = [&calls](const sdk::Call &call) {
        std::vector<std::uint8_t> sent = call.sent;
        if (call.service == sdk::Service::acl_rules_set)
            sent[offsetof(ky_acl_rules_params_t, offset)] = 0;
        calls += fmt::format("{} {} {:02X}\n", name(call.service), call.arguments, fmt::join(sent, ""));
    };
    for (const std::uint32_t port : domain.ports)
        calls += expect_success({Kind::announce, 0, port});
    for (std::size_t count = domain.bridges.size(); count != 0; --count)
        calls += expect_success({Kind::create});
    for (const std::uint32_t bridge : domain.bridges)
        for (const std::uint32_t port : domain.ports)
            calls += expect_success({Kind::add, bridge, port, bridge % 3 + 1, port % 2});
    sdk::device().on_call = nullptr;
    return calls;
}

std::string attach_after_a_fresh_start()
{
    power_on(domain);
    apply(domain.starts.front());
    return attach_a_full_set();
}

/// Carries steps out from a fresh start, then gives everything back and takes it anew.
/// @return what does not hold; empty: all well
std::string run(const std::vector<Step> &steps)
{
    static const std::string calls_of_a_fresh_start = attach_after_a_fresh_start();
    power_on(domain);
    apply(domain.starts.front());
    Rules may_stay;
    for (const Step &step : steps) {
        const Holdings before = read_holdings();
        std::vector<sdk::Call> failed;
        apply(step, failed);
        for (const sdk::Call &call : failed) {
            const bool unbinds =
                call.service == sdk::Service::acl_unbind_port || call.service == sdk::Service::acl_bind_port_get;
            if (deletes_rule(call, sdk::Direction::ingress) || deletes_rule(call, sdk::Direction::egress))
                may_stay.insert(place_of_rule(call));
            else if (unbinds && step.operation.kind == Kind::add)
                may_stay.merge(written_rules()); // the undo does not come to the egress rule
        }
        const std::string findings = compare_holdings(step.operation, before, read_holdings()) + check_held();
        if (!findings.empty())
            return text(step.operation) + ": " + findings;
    }
    std::string findings = give_back(steps.size() % 2 == 0);
    const Rules left = written_rules();
    if (findings.empty() && !std::includes(may_stay.begin(), may_stay.end(), left.begin(), left.end()))
        findings = "a rule is left over though its deletion was not refused\n";
    if (findings.empty())
        if (const std::string calls = attach_a_full_set(); calls != calls_of_a_fresh_start)
            findings = fmt::format("a full set is attached with\n{}but after a fresh start with\n{}", calls,
                                   calls_of_a_fresh_start);
    return findings.empty() ? findings + check_held() : findings;
}

} // namespace

TEST(Refusals, NothingStaysStuckAndNobodyIsDisturbed)
{
    const auto now = std::chrono::system_clock::now().time_since_epoch().count();
    const std::uint64_t seed = environment("KYBRIDGE_RANDOM_SEED", static_cast<std::uint64_t>(now));
    const std::uint64_t rounds = environment("KYBRIDGE_RANDOM_OPERATIONS", reduced_effort() ? 2000 : 100000) / 20;
    std::printf("seed %llu, %llu rounds\n", static_cast<unsigned long long>(seed),
                static_cast<unsigned long long>(rounds));
    std::mt19937_64 engine(seed);
    const auto below = [&engine](std::uint32_t limit) {
        return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(engine);
    };
    for (std::uint64_t round = 0; round < rounds; ++round) {
        ky_bridge_log_verbosity_level_set(round % 16 == 0 ? 6 : 0);
        std::vector<Step> steps = {{{Kind::announce, 0, domain.ports[0]}}, {{Kind::create}}, {{Kind::create}}};
        while (steps.size() < 23) {
            Step step = any_step(domain, below);
            const Kind kind = step.operation.kind;
            if (kind == Kind::start || kind == Kind::stop || kind == Kind::reference || is_question(kind))
                continue;
            step.failing_calls.clear();
            const std::uint32_t one_in = 1U << below(6); // all, half, ... of the calls are refused
            for (unsigned call = 1; call < 40 && one_in != 32; ++call)
                if (below(one_in) == 0)
                    step.failing_calls.push_back(call);
            steps.push_back(step);
        }
        ASSERT_TRUE(run(steps).empty()) << "seed " << seed << ", round " << round << ":\n"
                                        << shortest(domain, steps, run);
    }
    power_on(domain); // also stops the module
    ky_bridge_log_verbosity_level_set(3);
}
