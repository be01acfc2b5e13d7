#include "appliance/screen/reference_picture.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>

namespace screen::reference {
namespace {

struct Colour {
    double red = 0;
    double green = 0;
    double blue = 0;
};

int byteOf(double value) {
    return static_cast<int>(std::lround(std::fmin(std::fmax(value, 0), 255)));
}

// The exact colour of Y, U and V.
Colour colourOf(int y, int u, int v, ColourMatrix matrix, bool fullRange) {
    const double redShare = matrix == ColourMatrix::bt709 ? 0.2126 : 0.299;
    const double blueShare = matrix == ColourMatrix::bt709 ? 0.0722 : 0.114;
    const double bright = fullRange ? y : (y - 16) * 255.0 / 219;
    const double blueness = (u - 128) * (fullRange ? 1 : 255.0 / 224);
    const double redness = (v - 128) * (fullRange ? 1 : 255.0 / 224);
    const double red = bright + 2 * (1 - redShare) * redness;
    const double blue = bright + 2 * (1 - blueShare) * blueness;
    return {red,
            (bright - redShare * (bright + 2 * (1 - redShare) * redness) -
             blueShare * (bright + 2 * (1 - blueShare) * blueness)) /
                (1 - redShare - blueShare),
            blue};
}

std::uint32_t packed(const Colour& colour) {
    return static_cast<std::uint32_t>(byteOf(colour.red) << 16 | byteOf(colour.green) << 8 |
                                      byteOf(colour.blue));
}

} // namespace

int difference(std::uint32_t a, std::uint32_t b) {
    int largest = 0;
    for (const int shift : {0, 8, 16}) {
        const int one = static_cast<int>(a >> shift & 255);
        const int other = static_cast<int>(b >> shift & 255);
        largest = std::max(largest, std::abs(one - other));
    }
    return largest;
}

PictureShape shapeOf(int width, int height, PixelFormat format) {
    PictureShape shape;
    shape.width = width;
    shape.height = height;
    shape.format = format;
    return shape;
}

Frame frameOf(const PictureShape& shape, const Samples& samples) {
    Frame frame;
    frame.shape = shape;
    frame.bytes.resize(bytesOf(shape), 0xee);
    const PlaneLayouts planes = planesOf(shape);
    const auto at = [&](std::size_t plane, int y, std::size_t byte) -> std::uint8_t& {
        return frame.bytes.at(planes[plane].offset + static_cast<std::size_t>(y) * planes[plane].stride +
                              byte);
    };
    for (int y = 0; y < shape.height; ++y)
        for (int x = 0; x < shape.width; ++x) {
            const auto column = static_cast<std::size_t>(x);
            if (shape.format != PixelFormat::bgrx) {
                at(0, y, column) = static_cast<std::uint8_t>(samples(0, x, y));
                continue;
            }
            for (int channel = 0; channel < 3; ++channel)
                at(0, y, 4 * column + 2 - static_cast<std::size_t>(channel)) =
                    static_cast<std::uint8_t>(samples(channel, x, y));
        }
    if (shape.format == PixelFormat::bgrx)
        return frame;
    for (int y = 0; y < (shape.height + 1) / 2; ++y)
        for (int x = 0; x < (shape.width + 1) / 2; ++x)
            for (int colour = 1; colour < 3; ++colour) {
                const bool pairs = shape.format == PixelFormat::nv12;
                const std::size_t plane = pairs ? 1 : static_cast<std::size_t>(colour);
                const std::size_t byte = static_cast<std::size_t>(pairs ? 2 * x + colour - 1 : x);
                at(plane, y, byte) = static_cast<std::uint8_t>(samples(colour, x, y));
            }
    return frame;
}

std::uint32_t pixelOf(const PictureShape& shape, const Samples& samples, int x, int y) {
    if (shape.format == PixelFormat::bgrx)
        return static_cast<std::uint32_t>(samples(0, x, y) << 16 | samples(1, x, y) << 8 | samples(2, x, y));
    return packed(colourOf(samples(0, x, y), samples(1, x / 2, y / 2), samples(2, x / 2, y / 2), shape.matrix,
                           shape.fullRange));
}

Samples zonePlate(int width, int height) {
    return [=](int plane, int x, int y) {
        if (plane == 1)
            return 64 + x * 128 / width;
        if (plane == 2)
            return 64 + y * 256 / height % 128;
        const double dx = x - width / 2.0;
        const double dy = y - height / 2.0;
        return static_cast<int>(126 + 100 * std::cos(std::numbers::pi * (dx * dx + dy * dy) / width));
    };
}

Differences compare(const Picture& picture, const std::function<std::uint32_t(int x, int y)>& wanted) {
    Differences differences;
    const auto width = static_cast<std::size_t>(picture.width());
    for (std::size_t i = 0; i < picture.pixels.size(); ++i) {
        const int here =
            difference(picture.pixels[i], wanted(static_cast<int>(i % width), static_cast<int>(i / width)));
        differences.largest = std::max(differences.largest, here);
        differences.average += here;
    }
    differences.average /= static_cast<double>(picture.pixels.size());
    return differences;
}

} // namespace screen::reference
