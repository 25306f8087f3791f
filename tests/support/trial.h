/// Operations in a state, with service calls in them refused.
#ifndef KYBRIDGE_TESTS_SUPPORT_TRIAL_H
#define KYBRIDGE_TESTS_SUPPORT_TRIAL_H

#include <string>
#include <vector>

#include "support/steps.h"

namespace operations {

enum class Refused { each_call, each_pair };

/// How much was tried.
struct Tried {
    unsigned operations = 0;
    unsigned calls = 0; ///< refused alone
    unsigned pairs = 0; ///< refused together
};

/// Carries operations out in a state, each of them again and again from power-on, and refuses each of its calls in
/// turn, then, where it is asked for, each pair of them. Afterwards everything is compared with the state before, with
/// the one after the same operation without a refusal, or with the part of the way that is promised.
/// @param path leads to the state @param[in,out] tried counts
/// @return what does not hold, with a script for kybridge-host; empty: all well
std::string refuse_calls(const Domain &domain, const Path &path, const std::vector<Operation> &operations,
                         Refused refused, Tried &tried);
void print(const Tried &tried);

} // namespace operations

#endif
