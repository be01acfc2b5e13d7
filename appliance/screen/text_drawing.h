// Renders a text as an image in front of the picture.
#pragma once

#include "appliance/screen/overlay.h"

#include <cairo.h>
#include <memory>
#include <pango/pangocairo.h>
#include <string>

namespace screen {

struct ReleaseObject {
    void operator()(void* object) const { g_object_unref(object); }
};
using TextLayout = std::unique_ptr<PangoLayout, ReleaseObject>;

enum class Weight { normal, bold };

// The text with valid UTF-8 only and without control characters; "" when it has nothing but blanks.
std::string drawable(const std::string& text);

// Lays out a text in letters of this height (pixels). Letters that the font does not have come from other fonts, or
// are boxes with their number. Rows are `room` pixels wide; a text of more than `rows` rows ends in an ellipsis.
TextLayout layOut(const std::string& drawableText, Weight weight, int letterPixels, int room, int rows);

Size sizeOf(const TextLayout& layout);

// An image of `at.width` x `at.height` pixels that is drawn with cairo. Its version is new.
class OverlayCanvas {
public:
    explicit OverlayCanvas(const Rectangle& at);
    OverlayCanvas(const OverlayCanvas&) = delete;
    OverlayCanvas& operator=(const OverlayCanvas&) = delete;
    ~OverlayCanvas();

    cairo_t* context() { return context_; } // begins at the top left corner of the image
    OverlayImage finish();                  // once, at the end

private:
    OverlayImage image_;
    cairo_surface_t* surface_;
    cairo_t* context_;
};

// White with a dark outline, so that it is legible on every picture. The layout is as wide as its room and begins at
// (x, y) of the screen. The image covers the letters only.
OverlayImage outlined(const TextLayout& layout, int x, int y, double outline);

} // namespace screen
