#include "tests/support/screen_picture.h"

#include <algorithm>
#include <cmath>

namespace screen {
namespace {

const std::uint8_t* byteAt(const PictureView& view, std::size_t plane, int x, int y, int bytes = 1) {
    return view.plane[plane] + static_cast<std::size_t>(y) * view.stride[plane] +
           static_cast<std::size_t>(x) * static_cast<std::size_t>(bytes);
}

std::uint32_t channel(double value) {
    return static_cast<std::uint32_t>(std::clamp(std::lround(value), 0L, 255L));
}

// Y, U and V, each 0 to 255, to a colour.
std::uint32_t colourOf(const PictureShape& shape, double y, double u, double v) {
    const double light = shape.fullRange ? y : (y - 16) * 255 / 219;
    const double scale = shape.fullRange ? 1 : 255.0 / 224;
    const double blue = (u - 128) * scale;
    const double red = (v - 128) * scale;
    const bool hd = shape.matrix == ColourMatrix::bt709;
    const double r = light + (hd ? 1.5748 : 1.402) * red;
    const double g = light - (hd ? 0.1873 : 0.3441) * blue - (hd ? 0.4681 : 0.7141) * red;
    const double b = light + (hd ? 1.8556 : 1.772) * blue;
    return channel(r) << 16 | channel(g) << 8 | channel(b);
}

} // namespace

std::optional<FrameMark> markIn(const Frame& frame) {
    const PictureView view = frame.view();
    if (view.plane[0] == nullptr)
        return std::nullopt;
    const auto read = view.shape.format == PixelFormat::bgrx ? readFrameMark : readFrameMarkInLuma;
    return read(view.plane[0], view.shape.width, view.shape.height, static_cast<int>(view.stride[0]));
}

std::uint32_t colourAt(const Frame& frame, int x, int y) {
    const PictureView view = frame.view();
    switch (view.shape.format) {
    case PixelFormat::bgrx: {
        const std::uint8_t* pixel = byteAt(view, 0, x, y, 4);
        return static_cast<std::uint32_t>(pixel[2] << 16 | pixel[1] << 8 | pixel[0]);
    }
    case PixelFormat::i420:
        return colourOf(view.shape, *byteAt(view, 0, x, y), *byteAt(view, 1, x / 2, y / 2),
                        *byteAt(view, 2, x / 2, y / 2));
    case PixelFormat::nv12: {
        const std::uint8_t* colour = byteAt(view, 1, x / 2, y / 2, 2);
        return colourOf(view.shape, *byteAt(view, 0, x, y), colour[0], colour[1]);
    }
    }
    return 0;
}

int brightnessAt(const Frame& frame, int x, int y) {
    const PictureView view = frame.view();
    return view.shape.format == PixelFormat::bgrx ? byteAt(view, 0, x, y, 4)[1] : *byteAt(view, 0, x, y);
}

bool isBlack(const Frame& frame) {
    for (int y = 0; y < frame.shape.height; ++y)
        for (int x = 0; x < frame.shape.width; ++x)
            if (brightnessAt(frame, x, y) >= 0x20)
                return false;
    return true;
}

} // namespace screen
