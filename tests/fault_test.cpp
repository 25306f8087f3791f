// Every service call of every operation fails once, from many starting states: the state before comes back
// where it is promised, else exactly the described part of the way is left. Then every pair of calls fails.
// What there is to fail is counted from what the operation calls, so that a new call is covered by itself.
#include <algorithm>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "support/effort.h"
#include "support/twin.h"

using namespace operations;

namespace {

using Path = std::vector<Operation>;

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

/// All that is compared.
struct Picture {
    State state;
    std::string hardware;
};

Picture picture()
{
    return {read_state(bridge_db), hardware()};
}

/// Brings the module from power-on into a state. @return the state as it should be
State reach(const Domain &domain, const Path &path)
{
    power_on(domain);
    State state;
    for (const Operation &operation : path) {
        const ky_status_t expected = predict(state, operation).status;
        EXPECT_EQ(apply(operation).status, expected);
    }
    return state;
}

/// How many lines of one text are not in another.
std::size_t count_new_lines(const std::string &before, const std::string &after)
{
    std::istringstream lines(before);
    std::multiset<std::string> known;
    for (std::string line; std::getline(lines, line);)
        known.insert(line);
    std::size_t count = 0;
    lines = std::istringstream(after);
    for (std::string line; std::getline(lines, line);) {
        const auto found = known.find(line);
        if (found == known.end())
            ++count;
        else
            known.erase(found);
    }
    return count;
}

/// One operation from one starting state, with faults.
class Trial {
public:
    Trial(const Domain &domain, const Path &path, const Operation &operation)
        : domain_(domain), path_(path), operation_(operation)
    {
        expected_before_ = reach(domain, path);
        before_ = picture();
        expected_after_ = expected_before_;
        status_ = predict(expected_after_, operation).status;
        calls_ = carry_out();
        after_ = picture();
    }

    /// @return how many runs there were
    unsigned fail_single_calls()
    {
        for (unsigned call = 1; call <= calls_; ++call) {
            SCOPED_TRACE(describe(call, 0));
            fail_single_call(call, call % 2 == 0 ? 77 : 200); // statuses of another module
        }
        return calls_;
    }

    /// @return how many runs there were
    unsigned fail_pairs_of_calls()
    {
        unsigned runs = 0;
        for (unsigned first = 1; first <= calls_; ++first) {
            reach(domain_, path_);
            sdk::device().faults.fail_any(first, 77);
            const unsigned calls = carry_out();
            for (unsigned second = first + 1; second <= calls; ++second, ++runs) {
                SCOPED_TRACE(describe(first, second));
                fail_pair(first, second);
            }
        }
        return runs;
    }

private:
    /// Carries the operation out. @return the calls that it made and that can fail
    unsigned carry_out()
    {
        unsigned calls = 0;
        failed_.clear();
        order_.clear();
        sdk::device().on_call = [&](const sdk::Call &call) {
            calls += call.service != sdk::Service::cl_free ? 1 : 0;
            order_.push_back(call);
            if (call.planned)
                failed_.push_back(call);
        };
        answered_ = apply(operation_).status;
        sdk::device().on_call = nullptr;
        sdk::device().faults.clear();
        return calls;
    }

    std::string describe(unsigned first, unsigned second) const
    {
        std::vector<Step> steps;
        for (const Operation &operation : path_)
            steps.push_back({operation});
        steps.push_back({operation_, {first}});
        if (second != 0)
            steps.back().failing_calls.push_back(second);
        return "call " + std::to_string(first) + (second != 0 ? " and " + std::to_string(second) : "") + " of:\n" +
               script(domain_, steps);
    }

    void fail_single_call(unsigned call, ky_status_t fault)
    {
        reach(domain_, path_);
        ky_bridge_log_verbosity_level_set(call % 4 < 2 ? 0 : 6); // silent, and with every line
        sdk::device().faults.fail_any(call, fault);
        carry_out();
        ASSERT_EQ(failed_.size(), 1U);
        const Failure failure = failure_of(operation_, failed_.front(), status_);
        const Picture now = picture();
        EXPECT_EQ(answered_, failure.status);
        EXPECT_EQ(check(failure.leaves != Failure::Leaves::partial), "");

        if (failure.leaves == Failure::Leaves::unchanged) {
            expect_equal(now, before_);
            EXPECT_EQ(apply(operation_).status, status_);
            expect_equal(picture(), after_);
        }
        if (failure.leaves == Failure::Leaves::done)
            expect_equal(now, after_);
        expect_clean_stop();
        if (failure.leaves == Failure::Leaves::partial)
            expect_part_of_the_way(now);
        EXPECT_EQ(sdk::device().violations, std::vector<std::string>());
    }

    void expect_part_of_the_way(const Picture &now)
    {
        const sdk::Call refused = failed_.front();
        Picture expected = before_;
        switch (operation_.kind) {
        case Kind::announce:
        case Kind::restore:
            expected.state = after_.state;
            break;
        case Kind::learn: { // every rule is an old or a new one
            expected.state = after_.state;
            expected.hardware = now.hardware;
            const std::size_t written = order_.size() - 1;
            EXPECT_EQ(count_new_lines(before_.hardware, now.hardware), written);
            EXPECT_EQ(count_new_lines(after_.hardware, now.hardware),
                      count_new_lines(after_.hardware, before_.hardware) - written);
            break;
        }
        case Kind::unbind:
            expected.state.bridges.at(operation_.bridge).bound.at(operation_.value) = false;
            if (order_.size() == 4) // memory, DELETE, DESTROY, memory: the group has lost its VLAN already
                expected.hardware = now.hardware;
            break;
        case Kind::remove: // the rule stays in the hardware
            expected.state.bridges.at(operation_.bridge).virtual_ports.at(operation_.port).uses_egress_rule = false;
            break;
        case Kind::add: // so does this one
            EXPECT_EQ(count_new_lines(before_.hardware, now.hardware), 1U);
            expected.hardware = now.hardware;
            break;
        case Kind::stop:
            expected = {State(), now.hardware};
            EXPECT_EQ(count_new_lines(before_.hardware, now.hardware), 0U);
            break;
        default:
            expected = part_of_clear(refused);
        }
        expect_equal(now, expected);
    }

    /// What a refused clear leaves: virtual ports gone one by one in the order of their VLANs, then what the
    /// same refusal makes of deleting the next.
    Picture part_of_clear(const sdk::Call &refused)
    {
        std::map<std::uint32_t, Operation> removals; // by VLAN
        for (const auto &[bridge_id, bridge] : expected_before_.bridges)
            if (const auto found = bridge.virtual_ports.find(operation_.port); found != bridge.virtual_ports.end())
                removals[found->second.vlan] = {Kind::remove,       bridge_id,          operation_.port,
                                                found->second.vlan, found->second.mode, true};
        const auto asked = [](const sdk::Call &call) { return call.service == sdk::Service::bridge_port_set; };
        auto complete = std::count_if(order_.begin(), order_.end(), asked) - (refused.depth != 0 || asked(refused));
        Path path = path_;
        auto removal = removals.begin();
        for (; complete > 0; --complete, ++removal)
            path.push_back(removal->second);
        std::uint64_t enclosing = 0;
        for (const sdk::Call &call : order_)
            enclosing = asked(call) ? call.number : enclosing;
        reach(domain_, path);
        if (refused.depth != 0) {
            sdk::device().faults.fail_any(static_cast<unsigned>(refused.number - enclosing), refused.status);
            apply(removal->second);
            sdk::device().faults.clear();
        }
        return picture();
    }

    /// Afterwards a host repeats the operation and gives everything back, which nothing keeps it from.
    void fail_pair(unsigned first, unsigned second)
    {
        reach(domain_, path_);
        ky_bridge_log_verbosity_level_set(second % 2 == 0 ? 0 : 6);
        sdk::device().faults.fail_any(first, 77);
        sdk::device().faults.fail_any(second, 77);
        carry_out();
        EXPECT_EQ(check_held(), "");
        if (bridge_db != nullptr) {
            apply(operation_);
            EXPECT_EQ(check_held(), "");
            EXPECT_EQ(give_back(second % 3 == 0), "");
        }
        expect_clean_stop();
    }

    /// Stops the module; only memory whose return was refused may be left over.
    void expect_clean_stop()
    {
        const bool keeps_memory = std::any_of(failed_.begin(), failed_.end(), [](const sdk::Call &call) {
            return call.service == sdk::Service::utils_memory_put;
        });
        EXPECT_EQ(apply({Kind::stop}).status, 0U);
        EXPECT_EQ(bridge_db, nullptr);
        if (!keeps_memory) {
            EXPECT_EQ(sdk::device().memory.bytes(), 0U);
        }
    }

    static void expect_equal(const Picture &actual, const Picture &expected)
    {
        EXPECT_EQ(text(actual.state), text(expected.state));
        EXPECT_EQ(actual.hardware, expected.hardware);
    }

    const Domain &domain_;
    const Path &path_;
    Operation operation_;
    State expected_before_, expected_after_;
    Picture before_, after_;
    ky_status_t status_ = 0;
    unsigned calls_ = 0;
    ky_status_t answered_ = 0;
    std::vector<sdk::Call> failed_; ///< calls of the last run that a planned fault answered
    std::vector<sdk::Call> order_;  ///< calls of the last run, as they ended
};

/// Runs a trial of every operation from every starting state.
template <typename Run> void for_each_trial(Run run)
{
    unsigned trials = 0;
    unsigned runs = 0;
    for (const std::uint32_t vlan : {1U, 2U, 100U}) { // the first bridge's internal VLAN, the second's, neither
        const Domain domain = domain_of(vlan);
        for (const Path &path : starting_paths(domain))
            for (const Operation &operation : every_operation(domain)) {
                const bool is_variation = operation.null || (operation.flag && operation.kind != Kind::clear);
                if (is_variation || (operation.kind == Kind::start && !path.empty()))
                    continue;
                Trial trial(domain, path, operation);
                runs += run(trial);
                ++trials;
                if (testing::Test::HasFailure())
                    return;
            }
        if (reduced_effort())
            break;
    }
    power_on(domain_of(1)); // also stops the module
    ky_bridge_log_verbosity_level_set(3);
    std::printf("%u operations in their states, %u runs with refused calls\n", trials, runs);
}

} // namespace

TEST(Faults, EverySingleCall)
{
    for_each_trial([](Trial &trial) { return trial.fail_single_calls(); });
}

TEST(Faults, EveryPairOfCalls)
{
    for_each_trial([](Trial &trial) { return trial.fail_pairs_of_calls(); });
}
