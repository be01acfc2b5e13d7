#include "bench/samples.h"

#include <cstdio>

namespace bench {

void tellSample(const std::string& row, const std::string& side, double value) {
    std::printf("sample %s %s %.6g\n", row.c_str(), side.c_str(), value);
    std::fflush(stdout);
}

void tellMissing(const std::string& row, const std::string& side, const std::string& reason) {
    std::printf("missing %s %s %s\n", row.c_str(), side.c_str(), reason.c_str());
    std::fflush(stdout);
}

} // namespace bench
