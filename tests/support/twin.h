/// The module and its model side by side, operation by operation, with faults of the SDK.
#ifndef KYBRIDGE_TESTS_SUPPORT_TWIN_H
#define KYBRIDGE_TESTS_SUPPORT_TWIN_H

#include <string>
#include <vector>

#include "support/steps.h"

namespace operations {

/// What one refused service call makes of an operation.
struct Failure {
    enum class Leaves {
        unchanged, ///< everything as before
        done,      ///< everything as if the operation had succeeded
        partial    ///< something in between
    };
    ky_status_t status; ///< the operation's answer
    Leaves leaves;
};
/// @param otherwise what the operation answers without a fault
Failure failure_of(const Operation &operation, const sdk::Call &refused, ky_status_t otherwise);

/// The hardware that the module can change, in words, without the places of rules.
std::string hardware();
/// The same without the tagging of memberships in VLANs that can be internal ones. There the last join counts, which
/// after a refused operation can be the one that restored the membership.
std::string hardware_but_shared_tagging();

/// How something differs from what it should be; empty: it does not.
std::string compare(const char *what, const std::string &expected, const std::string &actual);
std::string compare(const State &expected, const State &actual = read_state(bridge_db));
std::string compare(ky_status_t expected, ky_status_t actual);
std::string compare(const Answer &expected, const Answer &actual);

class Twin {
public:
    /// Powers the stand-in on. @param path operations that are carried out first, without checks
    explicit Twin(const Domain &domain, const Path &path = {});

    /// Carries a step out and checks everything that has to hold then. A fault that leaves something partial is
    /// repaired by operations of a host; where they do not bring the expected state back, the next operations
    /// run with reduced checks, and then the power goes off and on.
    /// @return what does not hold; empty: all well
    std::string run(const Step &step);

    const State &expected() const { return expected_; }
    bool is_certain() const { return uncertain_ == 0; } ///< nothing partial lies behind
    bool has_refused() const { return has_refused_; }   ///< the last step's fault answered a call
    bool has_restarted() const { return restarted_; }   ///< the last step ended in the state after power-on

private:
    std::string run_without_fault(const Operation &operation);
    std::string run_uncertain(const Step &step);
    std::string check_failure(const Operation &operation, const sdk::Call &refused, ky_status_t status,
                              const std::string &hardware_before);
    void power_off_and_on();

    Domain domain_;
    State expected_;
    unsigned uncertain_ = 0; ///< operations left until power-off; 0: the expected state holds
    bool restarted_ = true;
    bool has_refused_ = false;
};

/// Runs steps from power-on. @return what does not hold at the last one; empty: all well, or something before it
std::string run_twin(const Domain &domain, const std::vector<Step> &steps);

/// What does not hold in the module's database and, when it is to agree with it, the hardware; empty: all well.
std::string check(bool with_hardware = true);
/// What does not hold whatever was refused: in the database, of what virtual ports hold in the hardware, or in the
/// calls, but for the end of a VLAN group whose own deletion was refused.
std::string check_held();
/// Carries an operation out that nothing refuses any more. @return what was refused; empty: nothing
std::string expect_success(const Operation &operation);
/// Gives everything back that the module holds, once the SDK answers again.
/// @param port_by_port clears the ports, instead of deleting their virtual ports one by one
/// @return what was refused or is left over, but for rules; empty: all well
std::string give_back(bool port_by_port);

} // namespace operations

#endif
