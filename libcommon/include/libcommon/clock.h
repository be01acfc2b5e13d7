// The appliance's clock.
#pragma once

#include <cstdint>

// Microseconds since an arbitrary start (CLOCK_MONOTONIC): it never jumps when the time of day is set, and all
// processes of one machine see the same value. Any thread; safe in a signal handler.
std::int64_t gettimeusec();
