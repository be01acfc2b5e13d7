// Pictures whose two fields were taken at different times: moving edges show combs.
#pragma once

#include "appliance/screen/picture_shape.h"

#include <cstddef>
#include <cstdint>

namespace player {

// Whether a picture in I420 or NV12 shows combs.
bool showsCombs(const screen::PictureView& picture);

// The rows of a plane, smoothed: row y becomes the weighted mean of itself and its neighbours. `from` is the plane's
// first row, `to` has room for one row of `bytes` bytes.
void smoothRow(const std::uint8_t* from, std::size_t stride, int rows, int y, std::size_t bytes,
               std::uint8_t* to);

} // namespace player
