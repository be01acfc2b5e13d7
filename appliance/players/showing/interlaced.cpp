#include "appliance/players/showing/interlaced.h"

#include <algorithm>
#include <cstdlib>

namespace player {
namespace {

const std::uint8_t* rowOf(const std::uint8_t* plane, std::size_t stride, int y) {
    return plane + static_cast<std::size_t>(y) * stride;
}

} // namespace

bool showsCombs(const screen::PictureView& picture) {
    constexpr int step = 3; // every third column is examined
    constexpr int edge = 12;
    int looked = 0;
    int combed = 0;
    for (int y = 2; y + 2 < picture.shape.height; y += 2) {
        const auto row = [&](int offset) { return rowOf(picture.plane[0], picture.stride[0], y + offset); };
        const std::uint8_t* const here = row(0);
        const std::uint8_t* const up = row(-1);
        const std::uint8_t* const down = row(1);
        const std::uint8_t* const fieldUp = row(-2);
        const std::uint8_t* const fieldDown = row(2);
        for (int x = 0; x < picture.shape.width; x += step) {
            const int above = here[x] - up[x];
            const int below = here[x] - down[x];
            const int sameField = std::abs(here[x] - fieldUp[x]) + std::abs(here[x] - fieldDown[x]);
            const bool comb = (above > edge && below > edge) || (above < -edge && below < -edge);
            combed += comb && 2 * sameField < std::abs(above) + std::abs(below) ? 1 : 0;
            ++looked;
        }
    }
    return looked > 0 && combed * 100LL > looked; // more than one in a hundred
}

void smoothRow(const std::uint8_t* from, std::size_t stride, int rows, int y, std::size_t bytes,
               std::uint8_t* to) {
    const std::uint8_t* above = rowOf(from, stride, std::max(y - 1, 0));
    const std::uint8_t* here = rowOf(from, stride, y);
    const std::uint8_t* below = rowOf(from, stride, std::min(y + 1, rows - 1));
    for (std::size_t x = 0; x < bytes; ++x)
        to[x] = static_cast<std::uint8_t>((above[x] + 2 * here[x] + below[x] + 2) >> 2);
}

} // namespace player
