// From Y, U and V to red, green and blue, in whole numbers.
//
// Each result differs from the exact one, rounded, by at most 1; grey pixels are exact. For one thread at a time.
#pragma once

#include "appliance/screen/picture_shape.h"

#include <cstdint>
#include <vector>

namespace screen {

// Converts the rows of an I420 or NV12 picture one after the other.
class ColourConversion {
public:
    // The first `width` and `height` pixels of this picture from (x, y) on; both are even. All of them are inside.
    ColourConversion(const PictureView& picture, int x, int y, int width);

    // Converts row `row`, counted from `y`, to 0x00RRGGBB: `width` pixels. Rows in ascending order are cheapest.
    void row(int row, std::uint32_t* out);

private:
    void readColours(int colourRow);

    const PictureView& picture_;
    int x_;
    int y_;
    int width_;
    int colourRow_ = -1;
    // What the colours add to red, green and blue of each pixel of a row.
    std::vector<std::int16_t> red_;
    std::vector<std::int16_t> green_;
    std::vector<std::int16_t> blue_;
};

} // namespace screen
