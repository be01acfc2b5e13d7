#include "appliance/panel/pictures/picture_rate.h"

#include <algorithm>

namespace panel {

void PictureRate::setMost(double perSecond) {
    leastUs_ = static_cast<std::int64_t>(1e6 / std::clamp(perSecond, 0.5, 60.0));
}

void PictureRate::took(std::int64_t us) {
    const auto cost = static_cast<double>(std::max<std::int64_t>(us, 0));
    costUs_ = costUs_ == 0 ? cost : costUs_ * 0.8 + cost * 0.2;
}

std::int64_t PictureRate::intervalUs() const {
    const auto wanted = static_cast<std::int64_t>(costUs_ * share);
    return std::clamp(wanted, leastUs_, std::max(slowestUs, leastUs_));
}

} // namespace panel
