#include "appliance/encoder/pictures/test_picture.h"

#include "appliance/mark/frame_mark.h"

#include <array>
#include <cairo.h>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <memory>
#include <utility>

namespace {

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Pen = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

// Vertical centres of name, ball and text, as shares of the picture's height.
constexpr double nameMiddle = 0.48;
constexpr double ballMiddle = 0.68;
constexpr double textMiddle = 0.82;

Surface surfaceOf(Picture& picture) {
    return {cairo_image_surface_create_for_data(picture.bytes.data(), CAIRO_FORMAT_RGB24, picture.width,
                                                picture.height, picture.stride()),
            cairo_surface_destroy};
}

Pen penOn(const Surface& surface) {
    return {cairo_create(surface.get()), cairo_destroy};
}

// One of twelve colours around the colour circle.
void setColour(cairo_t* pen, int mark, double brightness) {
    const double angle = (mark * 7 % 12) * M_PI / 6;
    cairo_set_source_rgb(pen, brightness * (0.55 + 0.45 * std::cos(angle)),
                         brightness * (0.55 + 0.45 * std::cos(angle - 2 * M_PI / 3)),
                         brightness * (0.55 + 0.45 * std::cos(angle + 2 * M_PI / 3)));
}

// Centred, at most `maxWidth` wide.
void drawText(cairo_t* pen, const std::string& text, double x, double y, double size, double maxWidth) {
    cairo_set_font_size(pen, size);
    cairo_text_extents_t extents;
    cairo_text_extents(pen, text.c_str(), &extents);
    if (extents.width > maxWidth) {
        cairo_set_font_size(pen, size * maxWidth / extents.width);
        cairo_text_extents(pen, text.c_str(), &extents);
    }
    cairo_move_to(pen, x - extents.width / 2 - extents.x_bearing, y - extents.height / 2 - extents.y_bearing);
    cairo_show_text(pen, text.c_str());
}

std::string clockText(std::uint64_t number) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%02d   %llu", local.tm_hour, local.tm_min,
                  local.tm_sec, static_cast<int>(now.tv_nsec / 10000000),
                  static_cast<unsigned long long>(number));
    return text.data();
}

} // namespace

TestPicture::TestPicture(std::string name, int width, int height, int mark)
    : name_(std::move(name)), mark_(mark) {
    background_.resize(width, height);
    drawBackground();
}

void TestPicture::drawBackground() {
    const Surface surface = surfaceOf(background_);
    const Pen owner = penOn(surface);
    cairo_t* pen = owner.get();
    const double width = background_.width;
    const double height = background_.height;
    setColour(pen, mark_, 0.35);
    cairo_paint(pen);
    // A grid, to show scaling errors and lost lines.
    setColour(pen, mark_, 0.5);
    cairo_set_line_width(pen, std::max(1.0, height / 288));
    for (int i = 1; i < 8; ++i) {
        cairo_move_to(pen, width * i / 8, 0);
        cairo_line_to(pen, width * i / 8, height);
        cairo_move_to(pen, 0, height * i / 8);
        cairo_line_to(pen, width, height * i / 8);
    }
    cairo_stroke(pen);
    cairo_select_font_face(pen, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_source_rgb(pen, 1, 1, 1);
    drawText(pen, name_, width / 2, height * nameMiddle, height * 0.2, width * 0.9);
    cairo_surface_flush(surface.get());
}

void TestPicture::draw(Picture& picture, std::uint64_t number, int fps) const {
    picture.width = background_.width;
    picture.height = background_.height;
    picture.bytes = background_.bytes;
    {
        const Surface surface = surfaceOf(picture);
        const Pen owner = penOn(surface);
        cairo_t* pen = owner.get();
        const double width = picture.width;
        const double height = picture.height;
        // Across the picture and back in eight seconds.
        const double phase = std::fmod(static_cast<double>(number) / fps / 8, 1.0);
        const double way = phase < 0.5 ? phase * 2 : 2 - phase * 2;
        const double radius = height * 0.06;
        setColour(pen, mark_ + 5, 1.0);
        cairo_arc(pen, radius + way * (width - 2 * radius), height * ballMiddle, radius, 0, 2 * M_PI);
        cairo_fill(pen);
        cairo_select_font_face(pen, "monospace", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_source_rgb(pen, 1, 1, 1);
        drawText(pen, clockText(number), width / 2, height * textMiddle, height * 0.07, width * 0.9);
        cairo_surface_flush(surface.get());
    }
    drawFrameMark(picture.bytes.data(), picture.width, picture.height, picture.stride(),
                  {static_cast<std::uint8_t>(mark_), static_cast<std::uint16_t>(number)});
}
