// Timers: each sleeps in a thread of its own, then sends EID_TIMEOUT with its id. Never cancelled: who waits
// for a timer compares the id and drops what is not its own.
#pragma once

// Arms a timer and returns its id (65536 and up; never 0). Kept: the part below a second counts as
// microseconds' worth of nanoseconds, so that 2500 ms take 2.0005 s. Main thread.
int setTimeout(long milliseconds);

// Internals shared with the tests.
namespace timers {

struct TimerRequest {
    long seconds;
    long nanoseconds;
    int id;
};

TimerRequest makeRequest(long milliseconds, int id);
void setNextId(int id);

} // namespace timers
