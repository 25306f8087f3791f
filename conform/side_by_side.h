/// The module on the SDK's services and the model beside it, operation by operation.
#ifndef KYBRIDGE_CONFORM_SIDE_BY_SIDE_H
#define KYBRIDGE_CONFORM_SIDE_BY_SIDE_H

#include <string>

#include "conform/check.h"
#include "conform/model/model.h"

namespace conform {

class SideBySide {
public:
    /// What it means when the SDK refuses an operation that the model expects to come through.
    enum class Refusal { is_a_finding, is_allowed };

    explicit SideBySide(const Settings &settings) : settings_(settings) {}

    /// Carries an operation out and compares its answer, and what the module then holds, with the model's. What a
    /// refusal leaves has to be one of the states that the interface allows; the model then goes on from there.
    /// @throws Finding when something does not hold
    void run(const operations::Operation &operation, Refusal refusal = Refusal::is_a_finding);

    unsigned operations() const { return operations_; }
    unsigned refusals() const { return refusals_; }
    const std::string &first_refusal() const { return first_refusal_; }
    /// Whether a refusal left an operation half done, from where the model cannot tell what follows.
    bool is_half_done() const { return half_done_; }

private:
    operations::Surroundings surroundings(const operations::Answer &answer) const;
    ky_status_t deliver(std::uint32_t event_type, std::uint32_t log_port, std::uint8_t swid) const;
    void follow_refusal(const operations::Operation &operation, ky_status_t status, const operations::State &before);

    const Settings &settings_;
    operations::State expected_;
    unsigned operations_ = 0;
    unsigned refusals_ = 0;
    std::string first_refusal_;
    bool half_done_ = false;
};

} // namespace conform

#endif
