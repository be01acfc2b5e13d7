// decoder-monitor --wall: several decoders on one screen.
#pragma once

#include "appliance/screen/monitor/session.h"

#include <string>
#include <vector>

namespace screen {

// Shows the appliances below `roots` in a layout (parseWallLayout()) until the window is closed, SIGINT or SIGTERM
// arrives, or the time is over. Returns the program's exit status: 0; 1 with a message on standard error when nothing can
// be shown; 2 with a message for a wrong layout, too many roots, or a root that is no folder. Called once, on the only
// thread.
int runWall(const SessionOptions& options, const std::string& layout, const std::vector<std::string>& roots);

} // namespace screen
