// A composed picture, and its PNG file.
#pragma once

#include "appliance/screen/frame_store.h"
#include "appliance/screen/layout.h"

#include <cstdint>
#include <string>
#include <vector>

namespace screen {

struct Picture {
    FrameInfo info; // of the newest frame, visible or not; number 0: there is none
    ScreenShape screen;
    bool blanked = true;               // no frame is visible
    std::vector<std::uint32_t> pixels; // width() * height(), 0x00RRGGBB

    int width() const { return screen.size.width; }
    int height() const { return screen.size.height; }
};

// Encodes the picture as PNG, with the plain pixels, also of a television; empty with a log line on failure.
std::vector<std::uint8_t> pngOf(const Picture& picture);

// Writes the picture to a PNG file. False with errno and a log line on failure; an incomplete file is removed.
bool writePng(const Picture& picture, const std::string& path);

} // namespace screen
