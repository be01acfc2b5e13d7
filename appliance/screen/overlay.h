// The rectangles in front of the picture: texts and labels.
//
// A screen has a few small ones, which change rarely. So a text costs little: it is rendered when it changes, and only
// its own rectangle is laid over each picture (or uploaded to the GPU when its version changes).
#pragma once

#include "appliance/screen/layout.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace screen {

struct OverlayImage {
    Rectangle at;                      // on the screen; it may reach beyond its edges, and is cut there
    std::vector<std::uint32_t> pixels; // at.width * at.height, ARGB as numbers of this machine, premultiplied
    std::uint64_t version = 0;         // another number for each other image; never 0
};

// A version that no image of this process has had. Any thread.
std::uint64_t nextOverlayVersion();

// Lays the image over a picture of `screen`, 0x00RRGGBB. `stride` is the distance between two rows, pixels.
void layOver(const OverlayImage& image, Size screen, std::uint32_t* pixels, std::size_t stride);

} // namespace screen
