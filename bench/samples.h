// The form in which benchmarks tell their figures to bench/run: lines "sample ROW SIDE VALUE" on standard output.
#pragma once

#include <string>

namespace bench {

// One figure of a side of a row, in the row's unit. Row and side have no blanks. Any thread; one line at a time.
void tellSample(const std::string& row, const std::string& side, double value);

// Why a side has no figures: "missing ROW SIDE REASON".
void tellMissing(const std::string& row, const std::string& side, const std::string& reason);

} // namespace bench
