// The connectors of the machine's displays, for a console.
#pragma once

#include <string>

namespace screen {

// One line for each connector that has a display: its name and the display's first mode. It is another text when a
// display was plugged in, removed or replaced. "" where there are none. Costs some small reads.
// `folder` is for tests.
std::string connectorsText(const std::string& folder = "/sys/class/drm");

} // namespace screen
