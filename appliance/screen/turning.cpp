#include "appliance/screen/turning.h"

#include <algorithm>

namespace screen {
namespace {

// Rows become columns in squares of this side, so that both pictures are read and written within the caches.
constexpr int square = 16;

// Where the pixel at (0, 0) goes, and by how much its neighbours are apart there, pixels.
struct Way {
    std::ptrdiff_t start;
    std::ptrdiff_t toTheRight;
    std::ptrdiff_t down;
};

Way wayOf(Turn how, Size size, std::ptrdiff_t stride) {
    switch (how) {
    case Turn::none:
        break;
    case Turn::right:
        return {size.height - 1, stride, -1};
    case Turn::half:
        return {(size.height - 1) * stride + size.width - 1, -1, -stride};
    case Turn::left:
        return {(size.width - 1) * stride, -stride, 1};
    }
    return {0, 1, stride};
}

} // namespace

void turn(Turn how, const std::uint32_t* from, Size size, std::uint32_t* to, std::size_t toStride) {
    const Way way = wayOf(how, size, static_cast<std::ptrdiff_t>(toStride));
    for (int top = 0; top < size.height; top += square)
        for (int left = 0; left < size.width; left += square)
            for (int y = top; y < std::min(top + square, size.height); ++y) {
                const std::uint32_t* row = from + static_cast<std::ptrdiff_t>(y) * size.width;
                std::uint32_t* out = to + way.start + y * way.down;
                for (int x = left; x < std::min(left + square, size.width); ++x)
                    out[x * way.toTheRight] = row[x];
            }
}

} // namespace screen
