// Timers: each sleeps in a thread of its own, then sends EID_TIMEOUT with its id. Timers are never cancelled: the
// receiver compares the id and drops events of earlier timers.
#pragma once

#include <cstdint>

// Arms a timer and returns its id (65536 and up; never 0). Kept: the part below a second is a thousand times too
// short, so that 2500 ms take 2.0005 s. Main thread.
int setTimeout(std::int64_t milliseconds);

// Internals shared with the tests.
namespace timers {

struct TimerRequest {
    std::int64_t seconds;
    long nanoseconds;
    int id;
};

TimerRequest makeRequest(std::int64_t milliseconds, int id);
void setNextId(int id);

} // namespace timers
