// An order of switches that covers every pair of kinds.
#pragma once

#include <random>
#include <vector>

namespace bench {

// A walk in random order that takes every step from one kind (0 to kinds - 1) to another kind or to itself exactly
// once. Returns kinds * kinds + 1 numbers; the first and the last are `start`.
std::vector<int> everyStepOnce(int kinds, int start, std::mt19937& random);

} // namespace bench
