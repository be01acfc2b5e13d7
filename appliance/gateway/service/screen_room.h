// How much room the decoder's screen has for pictures: a small screen gets a camera's sub stream.
#pragma once

#include <string>

namespace gateway {

// Texts as the parameters have them; "" for one that is not set.
struct ScreenTexts {
    std::string tile;    // WIDTHxHEIGHT of the decoder's tile on a wall that shows it now
    std::string size;    // Screen.Size
    std::string monitor; // Screen.Info.Size
};

// Whether a screen is at most 960 pixels wide and 576 high: analogue video, a quarter of 1920x1080 and anything less. The
// first text with a size counts; without one, the screen is that of analogue video.
bool isSmallScreen(const ScreenTexts& texts);

// Reads the texts from the appliance's parameters. Not for the loop's thread: their locks may take seconds.
ScreenTexts readScreenTexts();

} // namespace gateway
