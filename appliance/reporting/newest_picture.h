// The newest frame on the screen: its number, time and origin.
#pragma once

#include <cstdint>
#include <optional>

struct Picture {
    std::uint64_t number = 0; // counts all frames drawn so far
    std::int64_t time = 0;    // when it was drawn, microseconds on gettimeusec()'s clock
    int source = -1;          // index of the source that it shows
    int playerPid = -1;       // the player that drew it
    bool blanked = false;     // the video plane is off and the frame does not show
};

// Reads it from the frame store; nothing before the first frame.
std::optional<Picture> readPicture();
