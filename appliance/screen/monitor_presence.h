// The running monitor's size, for programs that have no screen of their own, such as a snapshot.
//
// It is in parameter file 1: Screen.Info.Size (WIDTHxHEIGHT), Screen.Info.MonitorPid, and Screen.Info.MonitorStart,
// which tells the process apart from a later one with the same number. The values of a monitor that has ended are
// ignored. Any thread.
#pragma once

#include "appliance/screen/appliance_view.h"
#include "appliance/screen/layout.h"

#include <optional>

namespace screen {

// Publishes that this process is the monitor and shows a screen of that size. Call it again when the size changes.
void publishMonitor(Size size);

// Removes it, if it is this process's.
void withdrawMonitor();

// The size of the monitor that runs now; nothing when none runs.
std::optional<Size> runningMonitor(const ApplianceView& appliance);

} // namespace screen
