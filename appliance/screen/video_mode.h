// The two video modes of the monitor.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace screen {

enum class VideoMode : std::uint32_t { pal = 1, ntsc = 2 };

// The picture format of a mode. A television shows both modes as 4:3, so pixels are slightly wider (pal) or
// narrower (ntsc) than high: players fit their pictures into 4:3 and the monitor window shows them as 4:3. A
// picture file has the plain pixels.
struct VideoFormat {
    int width;         // pixels
    int height;        // rows
    int rateNumerator; // pictures per second, as a fraction
    int rateDenominator;
    const char* name; // "pal", "ntsc": also what programs take as an option
};

// pal: 720x576 at 25. ntsc: 720x480 at 30000/1001.
const VideoFormat& formatOf(VideoMode mode);

// The mode of that name, ignoring case; nothing for another text.
std::optional<VideoMode> videoModeByName(std::string_view name);

} // namespace screen
