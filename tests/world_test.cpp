// Small worlds, explored completely: from every state that can be reached, every operation with every argument.
// Then the same with any one service call refused, for as long as the time allows.
#include <algorithm>
#include <chrono>
#include <map>
#include <numeric>
#include <random>
#include <unordered_map>

#include <gtest/gtest.h>

#include "support/effort.h"
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

class World {
public:
    explicit World(LeftOut left_out) : twin_(domain)
    {
        for (const Operation &operation : every_operation(domain))
            if (!left_out(operation))
                operations_.push_back(operation);
        start_ = here_ = arrive();
        nodes_[start_].depth = 0;
    }

    void explore()
    {
        for (unsigned oldest = 0; oldest < nodes_.size() && !testing::Test::HasFatalFailure();) {
            if (is_explored(oldest)) {
                ++oldest;
                continue;
            }
            go_to([this](unsigned node) { return !is_explored(node); }, oldest);
            while (!is_explored(here_) && !testing::Test::HasFatalFailure()) {
                const unsigned from = here_;
                const unsigned number = nodes_[from].explored++;
                carry_out({operations_[number]});
                if (nodes_[from].lead_to.try_emplace(here_, number).second &&
                    nodes_[from].depth + 1 < nodes_[here_].depth)
                    nodes_[here_].set_parent(nodes_[from].depth + 1, from, number);
            }
        }
        known_ = static_cast<unsigned>(nodes_.size());
        std::printf("%u states, %zu transitions\n", known_, known_ * operations_.size());
    }

    /// From each state, in the order of their discovery, refuses each call of each operation in turn.
    void explore_with_faults(std::chrono::seconds time)
    {
        const auto end = std::chrono::steady_clock::now() + time;
        unsigned faults = 0;
        unsigned from = 0;
        for (; from < known_ && std::chrono::steady_clock::now() < end; ++from)
            for (const Operation &operation : operations_)
                for (unsigned call = 1; call == 1 || twin_.has_refused(); ++call) {
                    if (!twin_.is_certain() || !is_explored(here_))
                        power_off_and_on();
                    go_to([from](unsigned node) { return node == from; }, from);
                    carry_out({operation, {call}, call % 2 == 0 ? 77U : 200U});
                    if (testing::Test::HasFatalFailure())
                        return;
                    faults += twin_.has_refused() ? 1 : 0;
                }
        std::printf("%u refused calls, in %u of %u states\n", faults, from, known_);
    }

    /// Refuses each pair of calls of each operation in turn, in states from all over the world. What is left is
    /// given back, which nothing may keep a host from.
    void explore_with_pairs(std::chrono::seconds time)
    {
        const auto end = std::chrono::steady_clock::now() + time;
        std::vector<unsigned> order(known_);
        std::iota(order.begin(), order.end(), 0U);
        std::shuffle(order.begin(), order.end(), std::mt19937(20240229)); // NOLINT(cert-msc32-c,cert-msc51-cpp)
        unsigned pairs = 0;
        unsigned states = 0;
        for (; states < order.size() && std::chrono::steady_clock::now() < end; ++states) {
            const Way way = way_from_power_on(order[states]);
            for (const Operation &operation : operations_)
                for (unsigned first = 1, calls = 2; first < calls; ++first)
                    for (unsigned second = first + 1; second <= calls; ++second, ++pairs) {
                        calls = try_pair(way, {operation, {first, second}});
                        if (testing::Test::HasFatalFailure())
                            return;
                    }
        }
        std::printf("%u pairs of refused calls, in %u of %u states\n", pairs, states, known_);
    }

private:
    using Way = std::vector<unsigned>; ///< numbers of operations

    struct Node {
        unsigned explored = 0;                ///< how many operations have been carried out here
        std::map<unsigned, unsigned> lead_to; ///< to other nodes, by an operation's number
        unsigned depth = ~0U;                 ///< of the shortest way known from power-on, and its last step
        unsigned parent = 0;
        unsigned parents_way = 0;
        unsigned search = 0; ///< the last search that came here, from where and by which operation
        unsigned reached_from = 0;
        unsigned reached_by = 0;

        void set_parent(unsigned new_depth, unsigned node, unsigned number)
        {
            depth = new_depth;
            parent = node;
            parents_way = number;
        }
    };

    bool is_explored(unsigned node) const { return nodes_[node].explored == operations_.size(); }

    /// The number of the state that the module is in, a new one where it was never seen.
    unsigned arrive()
    {
        const auto [entry, is_new] =
            numbers_.try_emplace(text(twin_.expected()) + hardware(), static_cast<unsigned>(nodes_.size()));
        if (is_new)
            nodes_.emplace_back();
        return entry->second;
    }

    void carry_out(const Step &step)
    {
        const Operation &operation = step.operation;
        const auto bridge = twin_.expected().bridges.find(operation.bridge);
        if (operation.kind == Kind::reference && bridge != twin_.expected().bridges.end() &&
            bridge->second.references != 0)
            return; // they have no limit; this world has one
        if (twin_.has_restarted())
            steps_.clear();
        steps_.push_back(step);
        const std::string findings = twin_.run(step);
        ASSERT_EQ(findings, "") << script(domain, steps_);
        here_ = arrive();
    }

    /// @return the calls that the operation made, with the pair refused
    unsigned try_pair(const Way &way, const Step &step)
    {
        power_on(domain);
        for (const unsigned number : way)
            apply(operations_[number]);
        unsigned calls = 0;
        sdk::device().on_call = [&calls](const sdk::Call &call) {
            calls += call.service != sdk::Service::cl_free ? 1 : 0;
        };
        for (const unsigned call : step.failing_calls)
            sdk::device().faults.fail_any(call, step.fault);
        apply(step.operation);
        sdk::device().on_call = nullptr;
        sdk::device().faults.clear();
        std::string findings = check_held();
        if (findings.empty())
            findings = give_back(calls % 2 == 0);
        EXPECT_EQ(findings, "") << [&] {
            std::vector<Step> steps;
            for (const unsigned number : way)
                steps.push_back({operations_[number]});
            steps.push_back(step);
            return script(domain, steps);
        }();
        return calls;
    }

    void go(const Way &way)
    {
        for (const unsigned number : way)
            carry_out({operations_[number]});
    }

    void power_off_and_on()
    {
        twin_ = Twin(domain);
        here_ = start_;
    }

    /// The shortest known way from here to a node that is wanted. @return whether there is one nearby
    template <typename Wanted> bool find_way(Wanted wanted, Way &way)
    {
        way.clear();
        if (wanted(here_))
            return true;
        ++search_;
        std::vector<unsigned> reached = {here_};
        nodes_[here_].search = search_;
        for (std::size_t at = 0; at < reached.size() && reached.size() < 1000; ++at)
            for (const auto &[next, number] : nodes_[reached[at]].lead_to) {
                Node &node = nodes_[next];
                if (node.search == search_)
                    continue;
                node.search = search_;
                node.reached_from = reached[at];
                node.reached_by = number;
                if (wanted(next)) {
                    for (unsigned back = next; back != here_; back = nodes_[back].reached_from)
                        way.insert(way.begin(), nodes_[back].reached_by);
                    return true;
                }
                reached.push_back(next);
            }
        return false;
    }

    Way way_from_power_on(unsigned node) const
    {
        Way way;
        for (; node != start_; node = nodes_[node].parent)
            way.insert(way.begin(), nodes_[node].parents_way);
        return way;
    }

    /// Goes to a node that is wanted: one nearby, else a far one, by way of power-on.
    template <typename Wanted> void go_to(Wanted wanted, unsigned far)
    {
        Way way;
        if (!find_way(wanted, way)) {
            power_off_and_on();
            way = way_from_power_on(far);
        }
        go(way);
    }

    Twin twin_;
    std::vector<Operation> operations_;
    std::unordered_map<std::string, unsigned> numbers_; ///< of states, by all that is known of them
    std::vector<Node> nodes_;                           ///< by a state's number
    unsigned known_ = 0;                                ///< states that operations reach without a refused call
    unsigned start_ = 0;
    unsigned here_ = 0;
    unsigned search_ = 0;     ///< number of the last search
    std::vector<Step> steps_; ///< since the power was switched on
};

void explore(LeftOut left_out)
{
    World world(left_out);
    world.explore();
    const std::chrono::seconds time(environment("KYBRIDGE_WORLD_SECONDS", reduced_effort() ? 1 : 4));
    if (!testing::Test::HasFatalFailure())
        world.explore_with_faults(time);
    if (!testing::Test::HasFatalFailure())
        world.explore_with_pairs(std::chrono::seconds(environment("KYBRIDGE_PAIR_SECONDS", reduced_effort() ? 1 : 2)));
    power_on(domain); // also stops the module
}

bool is_question(const Operation &operation)
{
    return operation.kind >= Kind::port_list;
}

} // namespace

/// Ports in bridges, with both kinds of tagging and both kinds of bridge.
TEST(World, Attachments)
{
    explore([](const Operation &operation) {
        return operation.kind == Kind::reference || operation.kind == Kind::bind || operation.kind == Kind::learn ||
               (reduced_effort() && operation.flag);
    });
}

/// What a bridge is used for beside its ports.
TEST(World, UsesOfBridges)
{
    explore([](const Operation &operation) {
        return (operation.kind == Kind::add && operation.value != 0) || operation.port == domain.ports[1] ||
               (reduced_effort() && operation.kind == Kind::bind);
    });
}

/// Nothing is left out but what NULL pointers do. It takes KYBRIDGE_FULL_WORLD to be set, and minutes.
TEST(World, Everything)
{
    if (environment("KYBRIDGE_FULL_WORLD", 0) == 0)
        GTEST_SKIP() << "KYBRIDGE_FULL_WORLD is not set";
    explore([](const Operation &operation) { return operation.null && !is_question(operation); });
}
