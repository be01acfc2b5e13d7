// A small chart of distributions, as SVG.
#pragma once

#include "bench/distribution.h"

#include <string>
#include <vector>

namespace bench {

struct Series {
    std::string name;
    Distribution distribution;
};

// One strip a series on a common logarithmic axis: a dot a sample, a bar at the median.
std::string stripChart(const std::string& title, const std::string& unit, const std::vector<Series>& series);

} // namespace bench
