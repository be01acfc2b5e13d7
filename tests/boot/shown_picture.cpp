#include "tests/boot/shown_picture.h"

#include <algorithm>
#include <cstddef>

namespace {

// Brighter than a bar. The dark cells of a mark are darker in some decoders, but each column and each row of the mark
// has light cells.
constexpr int notBlack = 40;

struct Display {
    const std::uint8_t* bgrx;
    int width, height, stride;

    bool bright(int x, int y) const {
        const std::uint8_t* pixel =
            bgrx + static_cast<std::ptrdiff_t>(y) * stride + static_cast<std::ptrdiff_t>(x) * 4;
        return std::max({pixel[0], pixel[1], pixel[2]}) > notBlack;
    }
    // A picture's edge has many bright pixels; a blurred edge of a bar has none.
    bool brightRow(int y) const {
        int count = 0;
        for (int x = 0; x < width; ++x)
            count += bright(x, y) ? 1 : 0;
        return count * 8 > width;
    }
    bool brightColumn(int x) const {
        int count = 0;
        for (int y = 0; y < height; ++y)
            count += bright(x, y) ? 1 : 0;
        return count * 8 > height;
    }
};

} // namespace

std::optional<ShownPicture> findShownPicture(const std::uint8_t* bgrx, int width, int height, int stride) {
    const Display display{bgrx, width, height, stride};
    int left = 0, right = width, top = 0, bottom = height;
    while (top < bottom && !display.brightRow(top))
        ++top;
    while (bottom > top && !display.brightRow(bottom - 1))
        --bottom;
    while (left < right && !display.brightColumn(left))
        ++left;
    while (right > left && !display.brightColumn(right - 1))
        --right;
    if (left >= right || top >= bottom)
        return std::nullopt;
    const std::uint8_t* corner =
        bgrx + static_cast<std::ptrdiff_t>(top) * stride + static_cast<std::ptrdiff_t>(left) * 4;
    const auto mark = readFrameMark(corner, right - left, bottom - top, stride);
    if (!mark)
        return std::nullopt;
    return ShownPicture{left, top, right - left, bottom - top, *mark};
}
