#include "launcher/model/checker/shrink.h"

#include <algorithm>

namespace checker {

namespace {

Steps without(const Steps& steps, std::size_t first, std::size_t count) {
    Steps rest(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(first));
    const std::size_t next = std::min(first + count, steps.size());
    rest.insert(rest.end(), steps.begin() + static_cast<std::ptrdiff_t>(next), steps.end());
    return rest;
}

// Removes every piece of this length that is not needed. True when a piece was removed.
bool dropPieces(Steps& steps, std::size_t length, const std::function<bool(const Steps&)>& fails) {
    bool dropped = false;
    for (std::size_t first = 0; first < steps.size();) {
        Steps shorter = without(steps, first, length);
        if (fails(shorter)) {
            steps = std::move(shorter);
            dropped = true;
        } else {
            first += length;
        }
    }
    return dropped;
}

bool dropPair(Steps& steps, const std::function<bool(const Steps&)>& fails) {
    for (std::size_t second = 1; second < steps.size(); ++second)
        for (std::size_t first = 0; first < second; ++first) {
            Steps shorter = without(without(steps, second, 1), first, 1);
            if (fails(shorter)) {
                steps = std::move(shorter);
                return true;
            }
        }
    return false;
}

} // namespace

Steps shrink(Steps steps, const std::function<bool(const Steps&)>& fails) {
    std::size_t length = std::max<std::size_t>(steps.size() / 2, 1);
    for (;;) {
        const bool dropped = dropPieces(steps, length, fails);
        if (length > 1)
            length /= 2;
        else if (!dropped && !dropPair(steps, fails))
            return steps;
    }
}

} // namespace checker
