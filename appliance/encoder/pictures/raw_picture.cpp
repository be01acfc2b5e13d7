#include "appliance/encoder/pictures/raw_picture.h"

#include <algorithm>

namespace {

// Bilinear scaling along one axis: for each target position two source positions, and the share of the second, of 256.
struct Tap {
    int first, second;
    unsigned share;
};

std::vector<Tap> taps(int from, int to) {
    std::vector<Tap> result(static_cast<std::size_t>(to));
    for (int i = 0; i < to; ++i) {
        // In 1/256 of a source pixel, measured between pixel centres.
        const long long at = std::max(0LL, ((2LL * i + 1) * from * 256 / to - 256) / 2);
        const int first = std::min(static_cast<int>(at / 256), from - 1);
        result[static_cast<std::size_t>(i)] = {first, std::min(first + 1, from - 1),
                                               static_cast<unsigned>(at % 256)};
    }
    return result;
}

} // namespace

void drawScaled(const Picture& from, Picture& to, int left, int top, int width, int height) {
    const std::vector<Tap> across = taps(from.width, width);
    const std::vector<Tap> down = taps(from.height, height);
    for (int y = 0; y < height; ++y) {
        const Tap& vertical = down[static_cast<std::size_t>(y)];
        const std::uint8_t* upper = from.row(vertical.first);
        const std::uint8_t* lower = from.row(vertical.second);
        std::uint8_t* out = to.row(top + y) + static_cast<std::ptrdiff_t>(left) * 4;
        for (const Tap& tap : across) {
            const std::ptrdiff_t a = static_cast<std::ptrdiff_t>(tap.first) * 4;
            const std::ptrdiff_t b = static_cast<std::ptrdiff_t>(tap.second) * 4;
            for (int c = 0; c < 4; ++c) {
                const unsigned high = upper[a + c] * (256 - tap.share) + upper[b + c] * tap.share;
                const unsigned low = lower[a + c] * (256 - tap.share) + lower[b + c] * tap.share;
                *out++ =
                    static_cast<std::uint8_t>((high * (256 - vertical.share) + low * vertical.share) >> 16);
            }
        }
    }
}
