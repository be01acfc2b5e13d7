// The newest frame on the screen, as far as it can be told in words.
#pragma once

#include <cstdint>
#include <optional>

struct Picture {
    std::uint64_t number = 0; // counts the frames that were ever drawn
    std::int64_t time = 0;    // when it was drawn, microseconds on gettimeusec()'s clock
    int source = -1;          // index of the source that it shows
    int playerPid = -1;       // who drew it
    bool blanked = false;     // the video plane is off: the frame is not seen
};

// Reads it from the frame store; nothing when no frame was ever drawn here.
std::optional<Picture> readPicture();
