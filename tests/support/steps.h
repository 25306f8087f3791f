/// Operations on the stand-in: with the service calls in them that are to fail, and from its power-on.
#ifndef KYBRIDGE_TESTS_SUPPORT_STEPS_H
#define KYBRIDGE_TESTS_SUPPORT_STEPS_H

#include <functional>
#include <string>
#include <vector>

#include "conform/model/model.h"
#include "sdk/sdk.h"

namespace operations {

using Path = std::vector<Operation>; ///< operations, one after the other

/// An operation and the service calls in it that are to fail.
struct Step {
    Operation operation;
    std::vector<unsigned> failing_calls = {}; ///< 1: the first that it makes
    ky_status_t fault = 77;                   ///< what a failing call answers
};

/// The steps of a path, on which nothing is refused.
std::vector<Step> steps(const Path &path);
/// The operations of steps, without what is refused in them.
Path path(const std::vector<Step> &steps);
/// Any operation, in one of six with a fault planned, which about one of seventy reaches.
Step any_step(const Domain &domain, const Below &below);

/// The stand-in as after power-on, with the domain's ports in SWID 0, and the module told of nobody. SWID 1
/// is served and not in RSTP mode, every other SWID but 0 is not served.
void power_on(const Domain &domain);

/// Calls the module. So that what it does depends on the state alone, VLAN groups are handed out under their
/// bridge's number, and regions and ACLs from 1 when there are none.
Answer apply(const Operation &operation);
/// Carries operations out from power-on. @return the state as it should be then
State reach(const Domain &domain, const Path &path);
/// Calls the module with the step's fault planned. @param[out] failed the calls that a planned fault answered
Answer apply(const Step &step, std::vector<sdk::Call> &failed);

/// What an operation should answer on the stand-in. @param[in,out] state as it should be before and after
Answer predict(State &state, const Operation &operation);

/// Whether a rule of a direction is deleted by a call.
bool deletes_rule(const sdk::Call &call, sdk::Direction direction);

/// The steps as a script for kybridge-host, after the lines that `power_on` stands for.
std::string script(const Domain &domain, const std::vector<Step> &steps);

/// Leaves out of a failing sequence whatever can be left out, in ever smaller pieces: steps, then their faults.
/// @param fails whether the last step still shows the failure
std::vector<Step> shrink(std::vector<Step> steps, const std::function<bool(const std::vector<Step> &)> &fails);
/// What does not hold after the shortest failing sequence found, and its script.
/// @param findings what does not hold at the last step; empty: all well, or something before it
std::string shortest(const Domain &domain, const std::vector<Step> &steps,
                     const std::function<std::string(const std::vector<Step> &)> &findings);

} // namespace operations

#endif
