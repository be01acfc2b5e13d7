#include "appliance/screen/painter.h"

#include "appliance/screen/colour_conversion.h"
#include "appliance/screen/picture_scaler.h"
#include "appliance/screen/turning.h"

#include <algorithm>
#include <cstring>

namespace screen {
namespace {

std::size_t area(Size size) {
    return static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
}

// Pixels in memory of somebody else.
struct Canvas {
    std::uint32_t* pixels = nullptr;
    std::size_t stride = 0; // pixels
    std::uint32_t* row(int y) const { return pixels + static_cast<std::size_t>(y) * stride; }
};

Canvas part(const Canvas& canvas, const Rectangle& at) {
    return {canvas.row(at.y) + at.x, canvas.stride};
}

void blacken(const Canvas& canvas, int left, int top, int right, int bottom) {
    for (int y = top; y < bottom; ++y)
        std::fill_n(canvas.row(y) + left, right - left, 0U);
}

// Everything but the rectangle.
void paintBars(const Canvas& canvas, Size screen, const Rectangle& at) {
    const int right = at.x + at.width;
    const int bottom = at.y + at.height;
    blacken(canvas, 0, 0, screen.width, at.y);
    blacken(canvas, 0, at.y, at.x, bottom);
    blacken(canvas, right, at.y, screen.width, bottom);
    blacken(canvas, 0, bottom, screen.width, screen.height);
}

void copyPixels(const PictureView& picture, const Rectangle& from, const Canvas& to) {
    for (int y = 0; y < from.height; ++y) {
        const std::uint8_t* bytes =
            picture.plane[0] + static_cast<std::size_t>(from.y + y) * picture.stride[0] + 4 * from.x;
        std::uint32_t* out = to.row(y);
        std::memcpy(out, bytes, 4 * static_cast<std::size_t>(from.width));
        for (int x = 0; x < from.width; ++x)
            out[x] &= 0xffffff;
    }
}

// Converts the part of the picture, in its own size.
void convert(const PictureView& picture, const Rectangle& from, const Canvas& to) {
    if (picture.shape.format == PixelFormat::bgrx)
        return copyPixels(picture, from, to);
    ColourConversion conversion(picture, from.x, from.y, from.width);
    for (int y = 0; y < from.height; ++y)
        conversion.row(y, to.row(y));
}

bool isInside(const Rectangle& inner, int width, int height) {
    return inner.x >= 0 && inner.y >= 0 && inner.width > 0 && inner.height > 0 &&
           inner.x <= width - inner.width && inner.y <= height - inner.height;
}

// Whether the look can be drawn from this picture. It can't when the store has another picture meanwhile.
bool fits(const PictureView& picture, const Look& look) {
    const Placing& placing = look.placing;
    return picture.shape == look.shape && faultOf(picture) == nullptr &&
           isInside(placing.from, picture.shape.width, picture.shape.height) && placing.from.x % 2 == 0 &&
           placing.from.y % 2 == 0 && isInside(placing.to, look.screen.size.width, look.screen.size.height);
}

} // namespace

class Painter::Work {
public:
    void paint(const PictureView* picture, const Look& look, const Canvas& out);

private:
    bool paintPicture(const PictureView& picture, const Placing& placing, const Canvas& out);
    bool paintUnturned(const PictureView& picture, const Placing& placing, Size size, const Canvas& to);

    PictureScaler scaler_;
    std::vector<std::uint32_t> unturned_;
};

// `size`: of the picture on the screen, but before it is turned.
bool Painter::Work::paintUnturned(const PictureView& picture, const Placing& placing, Size size,
                                  const Canvas& to) {
    if (placing.oneToOne()) {
        convert(picture, placing.from, to);
        return true;
    }
    const PictureView scaled = scaler_.scale(picture, placing.from, size);
    if (scaled.plane[0] == nullptr)
        return false;
    convert(scaled, {0, 0, size.width, size.height}, to);
    return true;
}

bool Painter::Work::paintPicture(const PictureView& picture, const Placing& placing, const Canvas& out) {
    const Canvas canvas = part(out, placing.to);
    Size size{placing.to.width, placing.to.height};
    if (placing.turn == Turn::none)
        return paintUnturned(picture, placing, size, canvas);
    if (swapsSides(placing.turn))
        std::swap(size.width, size.height);
    unturned_.resize(area(size));
    if (!paintUnturned(picture, placing, size, {unturned_.data(), static_cast<std::size_t>(size.width)}))
        return false;
    turn(placing.turn, unturned_.data(), size, canvas.pixels, canvas.stride);
    return true;
}

void Painter::Work::paint(const PictureView* picture, const Look& look, const Canvas& out) {
    const Size screen = look.screen.size;
    const bool visible = picture != nullptr && !look.blanked && fits(*picture, look);
    if (visible && paintPicture(*picture, look.placing, out))
        paintBars(out, screen, look.placing.to);
    else
        blacken(out, 0, 0, screen.width, screen.height);
    if (look.overlays == nullptr)
        return;
    for (const OverlayImage& image : *look.overlays)
        layOver(image, screen, out.pixels, out.stride);
}

Painter::Painter() : work_(std::make_unique<Work>()) {}
Painter::Painter(Painter&&) noexcept = default;
Painter::~Painter() = default;

void Painter::paint(const PictureView* picture, const Look& look, Picture& out) {
    out.info = look.info;
    out.screen = look.screen;
    out.blanked = look.blanked;
    out.pixels.resize(area(look.screen.size));
    work_->paint(picture, look, {out.pixels.data(), static_cast<std::size_t>(look.screen.size.width)});
}

void Painter::paint(const PictureView* picture, const Look& look, std::uint32_t* pixels,
                    std::size_t strideBytes) {
    work_->paint(picture, look, {pixels, strideBytes / sizeof *pixels});
}

} // namespace screen
