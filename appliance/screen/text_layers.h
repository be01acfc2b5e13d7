// The three texts of the supervisor as images in front of the picture.
//
// Texts are white with a dark outline in the upper third: line 0 at the top, each line at its own place. A long text
// takes more rows, as long as all texts stay in the upper two fifths; a text that is still too long ends in an
// ellipsis. All sizes follow the screen's height.
#pragma once

#include "appliance/screen/overlay.h"

#include <libcommon/display.h>

#include <array>
#include <string>
#include <vector>

namespace screen {

using ScreenText = std::array<std::string, libcommon::osdLines>; // UTF-8; invalid bytes are replaced

// For one thread at a time.
class TextLayers {
public:
    // Renders these texts for that screen. False when they are the same as before; nothing is rendered then.
    bool update(const ScreenText& texts, Size screen);

    const std::vector<OverlayImage>& images() const { return images_; } // empty texts have none

private:
    ScreenText texts_;
    Size screen_;
    std::vector<OverlayImage> images_;
};

} // namespace screen
