// The size of the panel's pictures.
#pragma once

#include "appliance/screen/layout.h"

namespace panel {

// A picture of that screen with square pixels, at most `mostWidth` wide (at least 160) and never larger than the screen;
// both sides are even.
screen::ScreenShape pictureShape(const screen::ScreenShape& screen, int mostWidth);

} // namespace panel
