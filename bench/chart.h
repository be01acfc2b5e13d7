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

// Each series is one strip on a common logarithmic axis, with a dot for each sample and a bar at the median.
std::string stripChart(const std::string& title, const std::string& unit, const std::vector<Series>& series);

} // namespace bench
