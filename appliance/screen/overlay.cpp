#include "appliance/screen/overlay.h"

#include <algorithm>
#include <atomic>

namespace screen {
namespace {

// Exactly value * part / 255, rounded, for two channels at once (0x00XX00XX).
inline std::uint32_t scaled(std::uint32_t twoChannels, std::uint32_t part) {
    const std::uint32_t product = twoChannels * part + 0x800080;
    return ((product + ((product >> 8) & 0xff00ff)) >> 8) & 0xff00ff;
}

inline std::uint32_t over(std::uint32_t front, std::uint32_t back) {
    const std::uint32_t rest = 255 - (front >> 24);
    const std::uint32_t redBlue = scaled(back & 0xff00ff, rest);
    const std::uint32_t green = scaled((back >> 8) & 0xff, rest) << 8;
    return (front & 0xffffff) + redBlue + green;
}

} // namespace

std::uint64_t nextOverlayVersion() {
    // Counts the images of this process; any thread.
    static std::atomic<std::uint64_t> version{0};
    return ++version;
}

void layOver(const OverlayImage& image, Size screen, std::uint32_t* pixels, std::size_t stride) {
    const Rectangle& at = image.at;
    const int left = std::max(at.x, 0);
    const int count = std::min(at.x + at.width, screen.width) - left;
    const int bottom = std::min(at.y + at.height, screen.height);
    for (int y = std::max(at.y, 0); y < bottom && count > 0; ++y) {
        const std::uint32_t* front =
            image.pixels.data() + static_cast<std::ptrdiff_t>(y - at.y) * at.width + (left - at.x);
        std::uint32_t* back = pixels + static_cast<std::size_t>(y) * stride + left;
        for (int x = 0; x < count; ++x)
            if (front[x] != 0)
                back[x] = over(front[x], back[x]);
    }
}

} // namespace screen
