/// A check in a process of its own, and what became of it.
#ifndef KYBRIDGE_CONFORM_CHILD_H
#define KYBRIDGE_CONFORM_CHILD_H

#include <functional>
#include <string>

#include "kybridge/ky_sdk.h"

namespace conform {

/// What a child came to.
struct Outcome {
    enum class Kind { holds, fails, not_run };
    Kind kind = Kind::fails;
    std::string called;   ///< the last call
    std::string answered; ///< also: how the process ended, when it did not end as it should
    std::string expected;
    std::string remark;
    std::string output; ///< the end of what it wrote to its standard output and error
    double seconds = 0;
};

/// Runs a body in a child of this process: it returns a remark, or throws a Finding or NotRun. A crash, an exit and
/// a body that takes too long are findings. @param limit seconds
Outcome run_in_child(const std::function<std::string()> &body, unsigned limit);

/// For a signal handler in the child: the byte behind a record was touched.
void note_touched_edge();

} // namespace conform

#endif
