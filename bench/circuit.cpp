#include "bench/circuit.h"

#include <algorithm>
#include <numeric>

namespace bench {

// Hierholzer's algorithm: walk until stuck, then insert the remaining steps where the walk passed.
std::vector<int> everyStepOnce(int kinds, int start, std::mt19937& random) {
    std::vector<std::vector<int>> left(static_cast<std::size_t>(kinds),
                                       std::vector<int>(static_cast<std::size_t>(kinds)));
    for (auto& steps : left) {
        std::iota(steps.begin(), steps.end(), 0);
        std::shuffle(steps.begin(), steps.end(), random);
    }
    std::vector<int> walk;
    std::vector<int> passed{start};
    while (!passed.empty()) {
        auto& steps = left[static_cast<std::size_t>(passed.back())];
        if (steps.empty()) {
            walk.push_back(passed.back());
            passed.pop_back();
        } else {
            const int next = steps.back();
            steps.pop_back();
            passed.push_back(next);
        }
    }
    std::reverse(walk.begin(), walk.end());
    return walk;
}

} // namespace bench
