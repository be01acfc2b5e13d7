#include "bench/distribution.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

namespace bench {

void Distribution::add(double value) {
    sorted_.insert(std::upper_bound(sorted_.begin(), sorted_.end(), value), value);
}

double Distribution::percentile(double percent) const {
    if (sorted_.empty())
        return 0;
    const double rank = std::ceil(percent / 100.0 * static_cast<double>(sorted_.size()));
    return sorted_[static_cast<std::size_t>(std::clamp(rank, 1.0, static_cast<double>(sorted_.size()))) - 1];
}

std::string Distribution::summary(const std::string& unit) const {
    char text[200];
    std::snprintf(text, sizeof text, "n %zu  min %.1f  median %.1f  p90 %.1f  p99 %.1f  max %.1f %s", count(),
                  percentile(0), median(), percentile(90), percentile(99), worst(), unit.c_str());
    return text;
}

std::string histogram(const Distribution& distribution, double width, const std::string& unit) {
    std::map<int, int> classes;
    for (const double value : distribution.samples())
        ++classes[static_cast<int>(std::floor(value / width))];
    int largest = 1;
    for (const auto& [number, count] : classes)
        largest = std::max(largest, count);
    std::string text;
    for (const auto& [number, count] : classes) {
        char head[80];
        std::snprintf(head, sizeof head, "%8.1f to %6.1f %s %4d ", number * width, (number + 1) * width,
                      unit.c_str(), count);
        text +=
            head + std::string(static_cast<std::size_t>((count * 50 + largest - 1) / largest), '#') + '\n';
    }
    return text;
}

} // namespace bench
