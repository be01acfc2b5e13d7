// The size of the running monitor, for programs that have no screen of their own, such as a snapshot.
//
// decoder-monitor publishes it in parameter file 1: Screen.Info.Size (WIDTHxHEIGHT), Screen.Info.MonitorPid, and
// Screen.Info.MonitorStart, which tells the process apart from a later one with the same number (the start in clock
// ticks, as /proc/PID/stat has it). The values of a monitor that has ended are ignored.
#pragma once

#include "appliance/screen/appliance_view.h"
#include "appliance/screen/layout.h"

#include <optional>

namespace screen {

// The size of the monitor that runs now; nothing when none runs or it has no display at present.
std::optional<Size> runningMonitor(const ApplianceView& appliance);

} // namespace screen
