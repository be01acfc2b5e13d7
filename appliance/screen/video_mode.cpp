#include "appliance/screen/video_mode.h"

#include <strings.h>

namespace screen {

const VideoFormat& formatOf(VideoMode mode) {
    static constexpr VideoFormat pal{720, 576, 25, 1, "pal"};
    static constexpr VideoFormat ntsc{720, 480, 30000, 1001, "ntsc"};
    return mode == VideoMode::ntsc ? ntsc : pal;
}

std::optional<VideoMode> videoModeByName(std::string_view name) {
    for (const VideoMode mode : {VideoMode::pal, VideoMode::ntsc}) {
        const std::string_view known = formatOf(mode).name;
        if (name.size() == known.size() && strncasecmp(name.data(), known.data(), known.size()) == 0)
            return mode;
    }
    return std::nullopt;
}

} // namespace screen
