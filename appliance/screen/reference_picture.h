// For tests: pictures that are computed with exact formulas, to compare the painter's with.
#pragma once

#include "appliance/screen/frame.h"
#include "appliance/screen/picture.h"

#include <cstdint>
#include <functional>

namespace screen::reference {

// The samples of a picture: plane 0 is Y, 1 U and 2 V, each at places of its own plane; for bgrx red, green and blue.
using Samples = std::function<int(int plane, int x, int y)>;

PictureShape shapeOf(int width, int height, PixelFormat format);

// A picture with these samples, as the store has it.
Frame frameOf(const PictureShape& shape, const Samples& samples);

// The exact pixel at (x, y) of a picture with these samples, 0x00RRGGBB.
std::uint32_t pixelOf(const PictureShape& shape, const Samples& samples, int x, int y);

// A zone plate: rings that become finer towards the edges, up to one pixel, in slowly changing colours. It shows each
// scaling, shift and wrong row.
Samples zonePlate(int width, int height);

// The largest difference of a channel of two pixels.
int difference(std::uint32_t a, std::uint32_t b);

struct Differences {
    int largest = 0;
    double average = 0;
};

// Compares all pixels with `wanted`.
Differences compare(const Picture& picture, const std::function<std::uint32_t(int x, int y)>& wanted);

} // namespace screen::reference
