// How long to wait before a failed connection is tried again.
#pragma once

#include <algorithm>
#include <chrono>

namespace gateway {

// 1, 2, 4, 8, 16, and from then on 30 seconds. `failures`: in a row, at least 1.
inline std::chrono::seconds pauseAfter(int failures) {
    constexpr int doublings = 5;
    constexpr std::chrono::seconds longest(30);
    return std::min(std::chrono::seconds(1 << std::min(failures - 1, doublings)), longest);
}

} // namespace gateway
