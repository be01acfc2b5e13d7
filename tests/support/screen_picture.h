// What a picture of the frame store shows, in any of its formats.
#pragma once

#include "appliance/mark/frame_mark.h"
#include "appliance/screen/frame.h"

#include <cstdint>
#include <optional>

namespace screen {

// The frame mark in the picture as it is stored, unturned.
std::optional<FrameMark> markIn(const Frame& frame);

// The colour of a pixel of the stored picture, 0x00RRGGBB. The pixel must be in the picture.
std::uint32_t colourAt(const Frame& frame, int x, int y);

// The brightness of a pixel as it is stored: its luma, or the green of a BGRx picture.
int brightnessAt(const Frame& frame, int x, int y);

// No pixel is brighter than a very dark grey.
bool isBlack(const Frame& frame);

} // namespace screen
