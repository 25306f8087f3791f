// Every service call of every operation is refused, and every pair of calls, in states that were chosen.
#include <gtest/gtest.h>

#include "support/effort.h"
#include "support/trial.h"

using namespace operations;

namespace {

constexpr std::uint32_t port_a = 0x10001;
constexpr std::uint32_t port_b = 0x10002;
constexpr std::uint32_t port_unknown = 0x10003; // to the module; the SDK knows it

Domain domain_of(std::uint32_t vlan)
{
    return {.bridges = {1, 2},
            .ports = {port_a, port_b, port_unknown},
            .vlans = {vlan},
            .extra_values = {},
            .starts = {{Kind::start, 3, 0, 4, KY_BRIDGE_SDK_MODE_802_1D}},
            .max_log_ports = 3};
}

/// Ways to the states to start from: not started; no virtual port, one, two of a bridge, two of a port, one of
/// the other bridge; bound in no direction, in one, in both.
std::vector<Path> starting_paths(const Domain &domain)
{
    const std::uint32_t vlan = domain.vlans.front();
    const Operation add{Kind::add, 1, port_a, vlan, 1};
    const Operation add_to_other{Kind::add, 2, port_a, vlan == 1 ? 2U : 1U, 1};
    const Operation bind{Kind::bind, 1};
    std::vector<Path> paths = {{}};
    for (const Path &virtual_ports :
         {Path(), Path{add}, Path{add, {Kind::add, 1, port_b, vlan, 0}}, Path{add, add_to_other}, Path{add_to_other}})
        for (const Path &others :
             {Path(), Path{bind}, Path{bind, {Kind::bind, 1, 0, 0, 1}, {Kind::learn, 1, 0, 0, 1}}}) {
            paths.push_back({domain.starts.front(),
                             {Kind::announce, 0, port_a},
                             {Kind::announce, 0, port_b},
                             {Kind::create},
                             {Kind::create}});
            paths.back().insert(paths.back().end(), virtual_ports.begin(), virtual_ports.end());
            paths.back().insert(paths.back().end(), others.begin(), others.end());
        }
    return paths;
}

} // namespace

TEST(Faults, EveryCallAndEveryPair)
{
    Tried tried;
    for (const std::uint32_t vlan : {1U, 2U, 100U}) { // the first bridge's internal VLAN, the second's, neither
        const Domain domain = domain_of(vlan);
        std::vector<Operation> operations = every_operation(domain);
        std::erase_if(operations, [](const Operation &operation) {
            return operation.null || (operation.flag && operation.kind != Kind::clear); // variations
        });
        for (const Path &path : starting_paths(domain)) {
            const std::string findings = refuse_calls(domain, path, operations, Refused::each_pair, tried);
            ASSERT_TRUE(findings.empty()) << findings;
        }
        power_on(domain); // also stops the module
        if (reduced_effort())
            break;
    }
    print(tried);
}
