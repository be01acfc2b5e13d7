#include "appliance/screen/layout.h"

#include <algorithm>
#include <utility>

namespace screen {
namespace {

// The picture as it is after its turn. All products below are at most 4096 * 4096 * 65535 * 65535, which fits.
struct Turned {
    explicit Turned(const PictureShape& shape)
        : width(shape.width), height(shape.height), numerator(shape.aspectNumerator),
          denominator(shape.aspectDenominator) {
        if (swapsSides(shape.turn)) {
            std::swap(width, height);
            std::swap(numerator, denominator);
        }
    }
    std::int64_t width;
    std::int64_t height;
    std::int64_t numerator; // of a pixel's width : height
    std::int64_t denominator;
};

// Proportions of the picture in pixels of the screen, width : height.
struct Proportions {
    std::int64_t width;
    std::int64_t height;
};

Proportions proportionsOf(const Turned& picture, const ScreenShape& screen) {
    return {picture.width * picture.numerator * screen.aspectDenominator,
            picture.height * picture.denominator * screen.aspectNumerator};
}

int rounded(std::int64_t dividend, std::int64_t divisor, std::int64_t most) {
    return static_cast<int>(std::clamp<std::int64_t>((dividend + divisor / 2) / divisor, 1, most));
}

bool isWiderThan(const Proportions& picture, Size screen) {
    return picture.width * screen.height >= picture.height * screen.width;
}

Size sizeWithBars(const Proportions& picture, Size screen) {
    if (isWiderThan(picture, screen))
        return {screen.width, rounded(screen.width * picture.height, picture.width, screen.height)};
    return {rounded(screen.height * picture.width, picture.height, screen.width), screen.height};
}

// The part of the turned picture that covers the screen.
Size sizeOfCut(const Turned& picture, const ScreenShape& screen) {
    const Size size = screen.size;
    const Proportions proportions = proportionsOf(picture, screen);
    const auto width = static_cast<int>(picture.width);
    const auto height = static_cast<int>(picture.height);
    if (isWiderThan(proportions, size))
        return {rounded(size.width * proportions.height,
                        size.height * picture.numerator * screen.aspectDenominator, width),
                height};
    return {width, rounded(size.height * proportions.width,
                           size.width * picture.denominator * screen.aspectNumerator, height)};
}

Rectangle centred(Size inner, int width, int height) {
    return {(width - inner.width) / 2, (height - inner.height) / 2, inner.width, inner.height};
}

// Two columns and two rows share their colour, so a cut begins at an even place.
int even(int place) {
    return place & ~1;
}

Rectangle cutOut(Size turned, const PictureShape& picture) {
    if (swapsSides(picture.turn))
        std::swap(turned.width, turned.height);
    const Rectangle cut = centred(turned, picture.width, picture.height);
    return {even(cut.x), even(cut.y), cut.width, cut.height};
}

} // namespace

bool swapsSides(Turn turn) {
    return turn == Turn::right || turn == Turn::left;
}

ScreenShape screenOf(Size size) {
    if (size == Size{720, 576})
        return {size, 16, 15};
    if (size == Size{720, 480})
        return {size, 8, 9};
    return {size, 1, 1};
}

ScreenShape defaultScreen(VideoMode mode) {
    const VideoFormat& format = formatOf(mode);
    return screenOf({format.width, format.height});
}

bool Placing::oneToOne() const {
    return swapsSides(turn) ? from.width == to.height && from.height == to.width
                            : from.width == to.width && from.height == to.height;
}

Placing place(const PictureShape& picture, const ScreenShape& screen, Fit fit) {
    const Size size = screen.size;
    const Turned turned(picture);
    Placing placing{{0, 0, picture.width, picture.height}, {0, 0, size.width, size.height}, picture.turn};
    if (fit == Fit::bars)
        placing.to = centred(sizeWithBars(proportionsOf(turned, screen), size), size.width, size.height);
    if (fit == Fit::crop)
        placing.from = cutOut(sizeOfCut(turned, screen), picture);
    return placing;
}

} // namespace screen
