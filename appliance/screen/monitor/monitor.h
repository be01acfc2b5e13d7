// decoder-monitor: the screen of this appliance in a window or on a whole display.
#pragma once

#include "appliance/screen/monitor/session.h"

namespace screen {

// Shows the screen until the window is closed, SIGINT or SIGTERM arrives, or the time is over. Returns the program's
// exit status: 0, or 1 with a message on standard error. Called once, on the only thread.
int runMonitor(const SessionOptions& options);

// The same for another content: everything that a monitor does but what it shows and what it tells the other programs.
// `make` is called in the process that has the display, `lost` in this one when the display is lost; it may be null.
int runMonitorWith(const SessionOptions& options, const std::function<std::unique_ptr<Content>()>& make,
                   const std::function<void()>& lost);

} // namespace screen
