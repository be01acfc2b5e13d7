// Turning pixels by quarters.
#pragma once

#include "appliance/screen/layout.h"

#include <cstddef>
#include <cstdint>

namespace screen {

// Turns a picture of `size` (without gaps between its rows) clockwise. `toStride` is the distance between two rows of
// `to`, pixels. The two do not overlap.
void turn(Turn how, const std::uint32_t* from, Size size, std::uint32_t* to, std::size_t toStride);

} // namespace screen
