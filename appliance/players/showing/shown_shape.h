// How a decoded picture is to be shown.
#pragma once

#include "appliance/screen/picture_shape.h"

namespace player {

// The shape with which a picture is handed to the screen. A picture in a size of analogue video (704 or 720 wide and
// the halves of that) whose stream says nothing about the shape of its pixels is 4:3. `turned`: by 180 degrees.
screen::PictureShape shownShape(screen::PictureShape decoded, bool turned);

} // namespace player
