// How fast the panel makes pictures: as fast as it may, but with a small part of the machine only. Pure, one thread.
#pragma once

#include <cstdint>

namespace panel {

class PictureRate {
public:
    // Of the time between two pictures at most a fourth may be spent with making one. A machine that is busy takes longer
    // for each, because this work has a low priority; then there are fewer of them.
    static constexpr int share = 4;
    static constexpr std::int64_t slowestUs = 2'000'000; // there is always a picture in this time

    explicit PictureRate(double mostPerSecond) { setMost(mostPerSecond); }
    void setMost(double perSecond);

    // Making a picture took this long, by the clock on the wall.
    void took(std::int64_t us);

    // From the beginning of one picture to that of the next.
    std::int64_t intervalUs() const;

private:
    std::int64_t leastUs_ = 0;
    double costUs_ = 0; // average of the last few
};

} // namespace panel
