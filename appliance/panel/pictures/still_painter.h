// Takes a still of the newest frame, without the texts in front of it.
#pragma once

#include "appliance/jpeg/jpeg.h"
#include "appliance/screen/frame_store.h"
#include "appliance/screen/painter.h"

#include <cstdint>
#include <optional>

namespace panel {

struct TakenStill {
    int source = -1;       // index in the list in force
    std::int64_t time = 0; // of the frame, gettimeusec()'s clock
    JpegPtr jpeg;
};

// For one thread at a time.
class StillPainter {
public:
    static constexpr int width = 320; // pixels, unless the picture is higher than wide

    // Nothing when no frame is visible, and when its source is not known.
    std::optional<TakenStill> take(screen::FrameStore& store);

private:
    screen::Painter painter_;
    screen::Picture picture_;
};

} // namespace panel
