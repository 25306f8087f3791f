/// The results as a person, a TAP consumer and a JUnit reader want them.
#ifndef KYBRIDGE_CONFORM_REPORT_H
#define KYBRIDGE_CONFORM_REPORT_H

#include <string>
#include <vector>

#include "conform/ky_conform.h"

namespace conform {

/// A result that outlives its callback.
struct Result {
    explicit Result(const ky_conform_result_t &of);

    std::string id, purpose, called, answered, expected, consequence, remark, output;
    ky_conform_outcome_t outcome;
    double seconds;
};

/// One line a check, and under one that fails what was found.
std::string as_text(const Result &result);
/// How many hold, fail and were not run, in one line.
std::string summary(const std::vector<Result> &results);
/// Test Anything Protocol, version 14.
std::string as_tap(const std::vector<Result> &results);
/// JUnit's XML, one test case a check.
std::string as_junit(const std::vector<Result> &results);

} // namespace conform

#endif
