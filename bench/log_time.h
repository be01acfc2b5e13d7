// The clock of the supervisor's log.
#pragma once

#include "tests/appliance/appliance.h"

namespace bench {

// Now, in seconds after midnight.
double secondsOfDay();

// The time of the log's first line, in seconds after midnight; 0 without a line. Appliance::timesInLog() counts from there.
double beginOfLog(const appliance::Appliance& decoder);

} // namespace bench
