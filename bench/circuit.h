// The order in which to switch so that every pair of kinds is met.
#pragma once

#include <random>
#include <vector>

namespace bench {

// A walk that starts and ends at `start` and takes every step from a kind (0 to kinds - 1) to a kind, its own
// among them, exactly once; the order is chance's. kinds * kinds + 1 numbers, the first and last are `start`.
std::vector<int> everyStepOnce(int kinds, int start, std::mt19937& random);

} // namespace bench
