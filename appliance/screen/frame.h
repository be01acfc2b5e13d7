// A picture of the frame store with its record.
#pragma once

#include "appliance/screen/picture_shape.h"

#include <cstdint>
#include <vector>

namespace screen {

// One committed picture.
struct FrameInfo {
    std::uint64_t number = 0; // 1, 2, 3, ...; 0: no frame
    std::int64_t time = 0;    // of the commit, on gettimeusec()'s clock
    std::int32_t pid = 0;     // of the process that drew it
    std::int32_t source = -1; // source index, from the process that drew it

    bool operator==(const FrameInfo&) const = default;
};

struct Frame {
    FrameInfo info;
    PictureShape shape;
    std::vector<std::uint8_t> bytes; // planes as planesOf(shape) lays them out; 0 between rows

    PictureView view() const; // valid as long as `bytes`; its planes are null when `bytes` is too short
};

} // namespace screen
