// Finds the test picture in a copy of a whole display, which may have black bars around it.
#pragma once

#include "appliance/mark/frame_mark.h"

#include <cstdint>
#include <optional>

struct ShownPicture {
    int x = 0, y = 0, width = 0, height = 0; // pixels of the display
    FrameMark mark{};
};

// Bars are black; test pictures have no black edges. Nothing when the display shows no test picture. The pixels are as
// for readFrameMark().
std::optional<ShownPicture> findShownPicture(const std::uint8_t* bgrx, int width, int height, int stride);
