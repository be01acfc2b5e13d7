// The on-screen texts as a transparent layer, drawn once and laid over many pictures.
#pragma once

#include "appliance/screen/composition.h"

#include <cairo.h>

namespace screen {

struct Composer::TextLayer {
    ScreenText text;
    int width = 0;
    int height = 0;
    cairo_surface_t* surface = nullptr; // null: nothing to lay over

    TextLayer() = default;
    TextLayer(const TextLayer&) = delete;
    TextLayer& operator=(const TextLayer&) = delete;
    ~TextLayer() { cairo_surface_destroy(surface); }

    // Draws these texts for a picture of that size, unless they are what the layer holds already.
    void update(const ScreenText& wanted, int pictureWidth, int pictureHeight);

    // Lays them over the picture.
    void layOver(Picture& picture) const;
};

} // namespace screen
