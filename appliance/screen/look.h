// What is to be shown now, without pixels of the picture: made by Composer::look(), drawn by a painter.
#pragma once

#include "appliance/screen/frame_store.h"
#include "appliance/screen/layout.h"
#include "appliance/screen/overlay.h"

#include <cstdint>
#include <vector>

namespace screen {

struct Look {
    FrameInfo info;      // of the frame, usually the newest one, visible or not; number 0: there is none
    bool blanked = true; // no frame is visible: the screen is black behind the overlays
    VideoMode mode = VideoMode::pal;
    ScreenShape screen;
    PictureShape shape;                                  // of the frame; only with `info.number`
    Placing placing;                                     // of the frame; only when not blanked
    const std::vector<OverlayImage>* overlays = nullptr; // the first one at the bottom; null: none
    std::uint64_t overlayVersion = 0;                    // another number when the overlays are others
    std::int64_t frameAgeUs = 0;                         // since the frame was committed; 0 without one
};

} // namespace screen
