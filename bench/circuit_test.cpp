#include "bench/circuit.h"

#include <gmock/gmock.h>
#include <set>

namespace {

TEST(Circuit, TakesEveryStepOnceAndEndsAtItsStart) {
    std::mt19937 random(3);
    for (int kinds = 1; kinds <= 7; ++kinds) {
        for (int start = 0; start < kinds; ++start) {
            const std::vector<int> walk = bench::everyStepOnce(kinds, start, random);
            ASSERT_EQ(walk.size(), static_cast<std::size_t>(kinds * kinds + 1));
            EXPECT_EQ(walk.front(), start);
            EXPECT_EQ(walk.back(), start);
            std::set<std::pair<int, int>> steps;
            for (std::size_t i = 1; i < walk.size(); ++i)
                steps.emplace(walk[i - 1], walk[i]);
            EXPECT_EQ(steps.size(), static_cast<std::size_t>(kinds * kinds));
        }
    }
}

TEST(Circuit, DiffersFromCallToCall) {
    std::mt19937 random(3);
    EXPECT_NE(bench::everyStepOnce(7, 0, random), bench::everyStepOnce(7, 0, random));
}

} // namespace
