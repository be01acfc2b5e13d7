#include <libcommon/clock.h>

#include <ctime>

std::int64_t gettimeusec() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}
