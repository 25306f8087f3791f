// Random operation: sequences of any operations with any arguments, a fault now and then, everything checked
// after each operation. KYBRIDGE_RANDOM_OPERATIONS sets how many, KYBRIDGE_RANDOM_SEED which.
#include <chrono>
#include <cstdlib>
#include <random>

#include <gtest/gtest.h>

#include "support/effort.h"
#include "support/twin.h"

using namespace operations;

namespace {

const Domain domain = border_domain();

void run(std::uint64_t seed, std::uint64_t operations)
{
    std::printf("seed %llu, %llu operations\n", static_cast<unsigned long long>(seed),
                static_cast<unsigned long long>(operations));
    std::mt19937_64 engine(seed);
    const auto below = [&engine](std::uint32_t limit) {
        return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(engine);
    };
    Twin twin(domain);
    std::vector<Step> since_power_on;
    for (std::uint64_t done = 0; done < operations; ++done) {
        if (done % 1000 == 0)
            ky_bridge_log_verbosity_level_set(done % 2000 == 0 ? 0 : 6); // silent, and with every line
        since_power_on.push_back(any_step(domain, below));
        const std::string findings = twin.run(since_power_on.back());
        ASSERT_TRUE(findings.empty()) << "seed " << seed << ", operation " << done << ":\n"
                                      << findings << shortest(domain, since_power_on, [](const auto &steps) {
                                             return run_twin(domain, steps);
                                         });
        if (twin.has_restarted())
            since_power_on.clear();
    }
    power_on(domain); // also stops the module
    ky_bridge_log_verbosity_level_set(3);
}

std::uint64_t operations_to_do()
{
    return environment("KYBRIDGE_RANDOM_OPERATIONS", reduced_effort() ? 3000 : 200000);
}

} // namespace

TEST(Random, FixedSeed)
{
    run(20240229, operations_to_do());
}

TEST(Random, OtherSeedEveryTime)
{
    const auto now = std::chrono::system_clock::now().time_since_epoch().count();
    run(environment("KYBRIDGE_RANDOM_SEED", static_cast<std::uint64_t>(now)), operations_to_do());
}
