// The pauses between attempts to connect: 1, 2, 4, ... 30 seconds, each up to a quarter longer, so that many decoders do
// not all come back in the same moment. One thread.
#pragma once

#include <algorithm>
#include <cstdint>

namespace mqtt {

class BackOff {
public:
    static constexpr std::int64_t first = 1'000'000; // microseconds
    static constexpr std::int64_t longest = 30'000'000;

    // The pause before the next attempt in microseconds. `chance`: any number.
    std::int64_t next(std::uint32_t chance) {
        const std::int64_t pause = pause_;
        pause_ = std::min(2 * pause_, longest);
        return pause + pause / 4 * (chance % 1024) / 1024;
    }

    void reset() { pause_ = first; }

private:
    std::int64_t pause_ = first;
};

} // namespace mqtt
