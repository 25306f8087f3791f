// Bytes become operations with arguments at their borders, and faults. The model and the consistency check are
// the oracle; what fails is printed as a script for kybridge-host.
#include <cstdio>
#include <cstdlib>

#include "kybridge/ky_bridge.h"
#include "support/twin.h"

using namespace operations;

namespace {

/// Deals out the bytes of an input as choices; when they are used up every choice is the first.
class Choices {
public:
    Choices(const std::uint8_t *data, std::size_t size) : next_(data), end_(data + size) {}
    bool are_left() const { return next_ != end_; }
    std::uint32_t below(std::uint32_t limit) { return are_left() ? *next_++ % limit : 0; }

private:
    const std::uint8_t *next_;
    const std::uint8_t *end_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const Domain domain = border_domain();
    Choices choices(data, size);
    Twin twin(domain);
    // Lines are formatted, so that every message with its arguments is looked at as well.
    std::size_t logged = 0;
    sdk::device().log = [&logged](const sdk::LogLine &line) { logged += line.text.size(); };
    ky_bridge_log_verbosity_level_set(choices.below(2) == 0 ? 3 : 6);

    std::vector<Step> steps;
    while (choices.are_left()) {
        steps.push_back(any_step(domain, [&](std::uint32_t limit) { return choices.below(limit); }));
        if (const std::string findings = twin.run(steps.back()); !findings.empty()) {
            std::fprintf(stderr, "%s\n# %s\n", script(domain, steps).c_str(), findings.c_str());
            std::abort();
        }
    }
    power_on(domain); // also stops the module
    return 0;
}
