// The mark of a tile whose decoder has stopped: a frame around the tile and a text in its middle.
#pragma once

#include "appliance/screen/overlay.h"

#include <string>
#include <vector>

namespace screen {

// The mark with that text for a tile of that size, which is at least 1x1. Uses Pango; for one thread at a time.
std::vector<OverlayImage> markImages(const std::string& text, Size tile);

} // namespace screen
