#include "bench/log_time.h"

#include <cstdio>
#include <ctime>

namespace bench {

double secondsOfDay() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec % 86400) + static_cast<double>(now.tv_nsec) / 1e9;
}

double beginOfLog(const appliance::Appliance& decoder) {
    int hours = 0;
    int minutes = 0;
    double seconds = 0;
    if (std::sscanf(decoder.log().c_str(), "%*d-%*d-%*dT%d:%d:%lf", &hours, &minutes, &seconds) != 3)
        return 0;
    return hours * 3600 + minutes * 60 + seconds;
}

} // namespace bench
