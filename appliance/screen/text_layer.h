// The on-screen texts as a transparent layer, which is rendered once and drawn over many pictures.
#pragma once

#include "appliance/screen/composition.h"

#include <cairo.h>

namespace screen {

struct Composer::TextLayer {
    ScreenText text;
    int width = 0;
    int height = 0;
    cairo_surface_t* surface = nullptr; // null: no text

    TextLayer() = default;
    TextLayer(const TextLayer&) = delete;
    TextLayer& operator=(const TextLayer&) = delete;
    ~TextLayer() { cairo_surface_destroy(surface); }

    // Renders these texts for a picture of that size, if the layer has others.
    void update(const ScreenText& wanted, int pictureWidth, int pictureHeight);

    // Draws the layer over the picture.
    void layOver(Picture& picture) const;
};

} // namespace screen
