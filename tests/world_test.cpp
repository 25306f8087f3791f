// Small worlds, explored completely: from every state that can be reached, every operation with every argument.
// Then the same with calls refused, in some of the states. KYBRIDGE_WORLD_STATES sets in how many of each world.
#include <algorithm>
#include <unordered_map>

#include <gtest/gtest.h>

#include "support/effort.h"
#include "support/trial.h"
#include "support/twin.h"

using namespace operations;

namespace {

/// Two ports, two VLANs, one of which is the first bridge's internal one, and two bridges.
const Domain domain = {
    .bridges = {1, 2},
    .ports = {0x10001, 0x10002},
    .vlans = {1, 100},
    .extra_values = {},
    .starts = {{Kind::start, 2, 0, 4, KY_BRIDGE_SDK_MODE_802_1D}, {Kind::start, 2, 0, 4, KY_BRIDGE_SDK_MODE_802_1Q}},
    .max_log_ports = 2};

/// What a world leaves out: its states are few enough then.
using LeftOut = bool (*)(const Operation &);

/// Whether an operation would take a bridge's second reference. They have no limit; this world has one.
bool is_beyond(const State &state, const Operation &operation)
{
    const auto bridge = state.bridges.find(operation.bridge);
    return operation.kind == Kind::reference && bridge != state.bridges.end() && bridge->second.references != 0;
}

/// Carries every operation out in every state that operations lead to.
/// @param[out] ways to the states from power-on, as short as there are @return what does not hold; empty: all well
std::string explore(const std::vector<Operation> &operations, std::vector<Path> &ways)
{
    std::unordered_map<std::string, std::size_t> numbers; // of states, by all that is known of them
    Twin twin(domain);
    const auto arrive = [&] {
        return numbers.try_emplace(text(twin.expected()) + hardware(), numbers.size()).first->second;
    };
    ways.resize(arrive() + 1);
    for (std::size_t from = 0; from < ways.size(); ++from) {
        std::size_t here = ways.size();
        Path path; // from power-on to here
        for (const Operation &operation : operations) {
            if (here != from) {
                path = ways[from];
                twin = Twin(domain, path);
            }
            if (is_beyond(twin.expected(), operation))
                continue;
            path.push_back(operation);
            if (!twin.run({operation}).empty())
                return shortest(domain, steps(path), [](const auto &fewer) { return run_twin(domain, fewer); });
            here = arrive();
            if (here == ways.size()) {
                ways.push_back(ways[from]);
                ways.back().push_back(operation);
            }
        }
    }
    return "";
}

void try_world(LeftOut left_out)
{
    std::vector<Operation> operations = every_operation(domain);
    std::erase_if(operations, left_out);
    std::vector<Path> ways;
    std::string findings = explore(operations, ways);
    std::printf("%zu states, %zu transitions\n", ways.size(), ways.size() * operations.size());

    const auto wanted = static_cast<std::size_t>(environment("KYBRIDGE_WORLD_STATES", reduced_effort() ? 6 : 250));
    const std::size_t states = std::min(wanted, ways.size());
    Tried tried;
    for (std::size_t number = 0; number < states && findings.empty(); ++number) // evenly from the first to the last
        findings = refuse_calls(domain, ways[number * ways.size() / states], operations,
                                number % 4 == 0 ? Refused::each_pair : Refused::each_call, tried);
    ASSERT_TRUE(findings.empty()) << findings;
    print(tried);
    power_on(domain); // also stops the module
}

} // namespace

/// Ports in bridges, with both kinds of tagging and both kinds of bridge.
TEST(World, Attachments)
{
    try_world([](const Operation &operation) {
        return operation.kind == Kind::reference || operation.kind == Kind::bind || operation.kind == Kind::learn ||
               (reduced_effort() && operation.flag);
    });
}

/// What a bridge is used for beside its ports.
TEST(World, UsesOfBridges)
{
    try_world([](const Operation &operation) {
        return (operation.kind == Kind::add && operation.value != 0) || operation.port == domain.ports[1] ||
               (reduced_effort() && operation.kind == Kind::bind);
    });
}

/// Nothing is left out but what NULL pointers do. It takes KYBRIDGE_FULL_WORLD to be set, and minutes.
TEST(World, Everything)
{
    if (environment("KYBRIDGE_FULL_WORLD", 0) == 0)
        GTEST_SKIP() << "KYBRIDGE_FULL_WORLD is not set";
    try_world([](const Operation &operation) { return operation.null && !is_question(operation.kind); });
}
