#include "support/trial.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include <fmt/format.h>

#include "support/twin.h"

namespace operations {

namespace {

using Leaves = Failure::Leaves;

/// All that is compared.
struct Picture {
    State state;
    std::string hardware;
};

std::string compare_pictures(const Picture &expected, const Picture &actual)
{
    return compare(expected.state, actual.state) + compare("the hardware", expected.hardware, actual.hardware);
}

std::multiset<std::string> lines(const std::string &text)
{
    std::istringstream stream(text);
    std::multiset<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.insert(line);
    return lines;
}

/// How many lines of one text are not in another.
std::size_t count_new_lines(const std::string &before, const std::string &after)
{
    const std::multiset<std::string> known = lines(before), all = lines(after);
    std::vector<std::string> added;
    std::set_difference(all.begin(), all.end(), known.begin(), known.end(), std::back_inserter(added));
    return added.size();
}

/// Whether a port was attached tagged as well as untagged.
bool modes_meet(const Path &path)
{
    std::map<std::uint32_t, std::uint32_t> modes; // by port
    return std::any_of(path.begin(), path.end(), [&modes](const Operation &operation) {
        return operation.kind == Kind::add &&
               modes.try_emplace(operation.port, operation.value).first->second != operation.value;
    });
}

/// Operations in one state, each of them first without a refusal, then with some.
class Trial {
public:
    Trial(const Domain &domain, const Path &path)
        : domain_(domain), path_(path), is_tagging_promised_(!modes_meet(path)), state_before_(reach(domain, path)),
          before_(picture())
    {
    }

    bool is_started() const { return state_before_.mode.has_value(); }

    /// Carries an operation out in the state. @return what does not hold; empty: all well, or it makes fewer calls
    std::string run(const Step &step)
    {
        if (step.failing_calls.empty())
            return run_without_refusal(step.operation);
        if (step.failing_calls.size() == 1)
            return refuse(step) ? check_failure() : "";
        std::string findings;
        for (const bool repeats : {false, true})
            if (refuse(step))
                findings += check_held_and_given_back(repeats, step.failing_calls.back() % 3 == 0);
        return findings;
    }

    unsigned calls() const { return calls_; }                     ///< that the last run made and that can be refused
    std::size_t refused_calls() const { return refused_.size(); } ///< in the last run

private:
    Picture picture() const
    {
        return {read_state(bridge_db), is_tagging_promised_ ? hardware() : hardware_but_shared_tagging()};
    }

    void go_there()
    {
        if (!is_there_)
            reach(domain_, path_);
    }

    void carry_out(const Step &step)
    {
        is_there_ = false;
        calls_ = 0;
        asked_.clear();
        refused_.clear();
        for (const unsigned call : step.failing_calls)
            sdk::device().faults.fail_any(call, step.fault);
        sdk::device().on_call = [this](const sdk::Call &call) {
            calls_ += call.service != sdk::Service::cl_free ? 1 : 0;
            if (call.service == sdk::Service::bridge_port_set)
                asked_.push_back(call.number);
            if (call.planned)
                refused_.push_back(call);
        };
        answer_ = apply(step.operation);
        sdk::device().on_call = nullptr;
        sdk::device().faults.clear();
    }

    std::string run_without_refusal(const Operation &operation)
    {
        go_there();
        operation_ = operation;
        State state_after = state_before_;
        const Answer predicted = predict(state_after, operation);
        carry_out({operation});
        after_ = picture();
        status_ = answer_.status;
        is_there_ = calls_ == 0 && compare_pictures(before_, after_).empty();
        return compare(state_before_, before_.state) + compare(predicted, answer_) +
               compare(state_after, after_.state) + check();
    }

    /// @return whether all of the calls were made
    bool refuse(const Step &step)
    {
        go_there();
        ky_bridge_log_verbosity_level_set(step.failing_calls.back() / 2 % 2 == 0 ? 0 : 6); // silent, or every line
        carry_out(step);
        return refused_.size() == step.failing_calls.size();
    }

    /// After one refused call.
    std::string check_failure()
    {
        const Failure failure = failure_of(operation_, refused_.front(), status_);
        const Picture now = picture();
        std::string findings = compare(failure.status, answer_.status) + check(failure.leaves != Leaves::partial);
        if (failure.leaves == Leaves::unchanged) {
            findings += compare_pictures(before_, now);
            findings += compare(status_, apply(operation_).status);
            findings += compare_pictures(after_, picture());
        }
        if (failure.leaves == Leaves::done)
            findings += compare_pictures(after_, now);
        findings += stop();
        findings += check(false);
        return failure.leaves == Leaves::partial ? findings + compare_part_of_the_way(now) : findings;
    }

    /// After a refused call that leaves something partial.
    std::string compare_part_of_the_way(const Picture &now)
    {
        const auto expect_new_lines = [&now](const Picture &than, std::size_t expected) {
            const std::size_t count = count_new_lines(than.hardware, now.hardware);
            return count == expected ? "" : fmt::format("{} new lines, not {}, in\n{}", count, expected, now.hardware);
        };
        switch (operation_.kind) {
        case Kind::announce:
        case Kind::restore:
            return compare_pictures({after_.state, before_.hardware}, now);
        case Kind::learn: { // every rule is an old or a new one
            const std::size_t written = calls_ - 1;
            return compare(after_.state, now.state) + expect_new_lines(before_, written) +
                   expect_new_lines(after_, count_new_lines(after_.hardware, before_.hardware) - written);
        }
        case Kind::unbind: {
            Picture expected = before_;
            expected.state.bridges.at(operation_.bridge).bound.at(operation_.value) = false;
            if (calls_ == 3) // memory, DELETE, DESTROY: the group has lost its VLAN already
                expected.hardware = now.hardware;
            return compare_pictures(expected, now);
        }
        case Kind::remove: { // the rule stays in the hardware
            Picture expected = before_;
            expected.state.bridges.at(operation_.bridge).virtual_ports.at(operation_.port).uses_egress_rule = false;
            return compare_pictures(expected, now);
        }
        case Kind::add: // so does this one
            return compare(before_.state, now.state) + expect_new_lines(before_, 1);
        case Kind::stop:
            return compare(State(), now.state) + expect_new_lines(before_, 0);
        default:
            return compare_pictures(part_of_clear(), now);
        }
    }

    /// What a refused clear leaves: virtual ports gone one by one in the order of their VLANs, then what the
    /// same refusal makes of deleting the next.
    Picture part_of_clear()
    {
        const sdk::Call refused = refused_.front();
        const bool is_within = refused.depth != 0;
        std::map<std::uint32_t, Operation> removals; // by VLAN
        for (const auto &[bridge_id, bridge] : state_before_.bridges)
            if (const auto found = bridge.virtual_ports.find(operation_.port); found != bridge.virtual_ports.end())
                removals[found->second.vlan] = {Kind::remove,       bridge_id,          operation_.port,
                                                found->second.vlan, found->second.mode, true};
        auto complete = asked_.size() - (is_within || refused.service == sdk::Service::bridge_port_set ? 1 : 0);
        Path path = path_;
        auto removal = removals.begin();
        for (; complete > 0; --complete, ++removal)
            path.push_back(removal->second);
        reach(domain_, path);
        if (is_within) {
            sdk::device().faults.fail_any(static_cast<unsigned>(refused.number - asked_.back()), refused.status);
            apply(removal->second);
            sdk::device().faults.clear();
        }
        return picture();
    }

    /// After several refused calls a host gives everything back, which nothing keeps it from.
    /// @param repeats it repeats the operation first
    std::string check_held_and_given_back(bool repeats, bool port_by_port)
    {
        std::string findings = check_held();
        if (repeats && bridge_db != nullptr) {
            apply(operation_);
            findings += check_held();
        }
        findings += give_back(port_by_port);
        return findings + stop();
    }

    /// Stops the module; only memory whose return was refused may be left over.
    std::string stop() const
    {
        const bool keeps_memory = std::any_of(refused_.begin(), refused_.end(), [](const sdk::Call &call) {
            return call.service == sdk::Service::utils_memory_put;
        });
        std::string findings = compare(KY_STATUS_SUCCESS, apply({Kind::stop}).status);
        findings += compare(State());
        if (!keeps_memory && sdk::device().memory.bytes() != 0)
            findings += fmt::format("{} bytes of memory are outstanding\n", sdk::device().memory.bytes());
        return findings;
    }

    const Domain &domain_;
    const Path &path_;
    const bool is_tagging_promised_; ///< see hardware_but_shared_tagging()
    const State state_before_;
    const Picture before_;
    bool is_there_ = true; ///< the module is in the state
    // Of the last run without a refusal:
    Operation operation_;
    ky_status_t status_ = 0;
    Picture after_;
    // Of the last run:
    Answer answer_;
    unsigned calls_ = 0;
    std::vector<std::uint64_t> asked_; ///< the numbers of its calls of bridge_port_set
    std::vector<sdk::Call> refused_;
};

/// What does not hold at the last of some steps.
std::string run_last(const Domain &domain, const std::vector<Step> &steps)
{
    Path way = path(steps);
    way.pop_back();
    Trial trial(domain, way);
    const std::string findings = trial.run({steps.back().operation});
    return findings.empty() ? trial.run(steps.back()) : findings;
}

} // namespace

std::string refuse_calls(const Domain &domain, const Path &path, const std::vector<Operation> &operations,
                         Refused refused, Tried &tried)
{
    Trial trial(domain, path);
    std::vector<Step> whole = steps(path);
    whole.emplace_back();
    const auto fails = [&](const Step &step) {
        whole.back() = step;
        return !trial.run(step).empty() || trial.refused_calls() != step.failing_calls.size();
    };
    const auto fails_somewhere = [&](const Operation &operation) {
        if (fails({operation}))
            return true;
        const unsigned calls = trial.calls();
        for (unsigned first = 1; first <= calls; ++first, ++tried.calls) {
            if (fails({operation, {first}, first % 2 == 0 ? 77U : 200U})) // statuses of another module
                return true;
            const unsigned calls_then = refused == Refused::each_pair ? trial.calls() : 0;
            for (unsigned second = first + 1; second <= calls_then; ++second, ++tried.pairs)
                if (fails({operation, {first, second}}))
                    return true;
        }
        return false;
    };
    std::string findings;
    for (const Operation &operation : operations) {
        if (operation.kind == Kind::start && trial.is_started())
            continue; // a host does not do that
        ++tried.operations;
        if (fails_somewhere(operation)) {
            findings = shortest(domain, whole, [&domain](const auto &fewer) { return run_last(domain, fewer); });
            break;
        }
    }
    ky_bridge_log_verbosity_level_set(3);
    return findings;
}

void print(const Tried &tried)
{
    std::printf("%u operations in their states, %u runs with a refused call, %u pairs\n", tried.operations, tried.calls,
                tried.pairs);
}

} // namespace operations
