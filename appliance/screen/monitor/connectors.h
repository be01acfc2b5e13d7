// The connectors of the machine's displays, for a console.
#pragma once

#include "appliance/screen/layout.h"

#include <optional>
#include <string>

namespace screen {

// One line for each connector that has a display: its name and the display's first mode. It is another text when a
// display was plugged in, removed or replaced. "" where there are none. Costs some small reads.
// `folder` is for tests.
std::string connectorsText(const std::string& folder = "/sys/class/drm");

// The first mode, which is the preferred one, of the only display. Nothing when there is none, when there are several, and
// for an interlaced mode.
std::optional<Size> soleDisplay(const std::string& folder = "/sys/class/drm");

} // namespace screen
