#include "appliance/screen/wall/mark_images.h"

#include "appliance/screen/text_drawing.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace screen {
namespace {

constexpr std::uint32_t frameColour = 0xffd03030;
constexpr int smallestLetters = 8; // pixels

OverlayImage bar(const Rectangle& at) {
    const auto pixels = static_cast<std::size_t>(at.width) * static_cast<std::size_t>(at.height);
    return {at, std::vector<std::uint32_t>(pixels, frameColour), nextOverlayVersion()};
}

OverlayImage box(const TextLayout& layout, Size text, int space, Size tile) {
    const Size size{text.width + 2 * space, text.height + space};
    OverlayCanvas canvas(
        {(tile.width - size.width) / 2, (tile.height - size.height) / 2, size.width, size.height});
    cairo_t* context = canvas.context();
    cairo_set_source_rgba(context, 0.3, 0, 0, 0.8);
    cairo_paint(context);
    cairo_move_to(context, space, space / 2.0);
    cairo_set_source_rgb(context, 1, 1, 1);
    pango_cairo_show_layout(context, layout.get());
    return canvas.finish();
}

} // namespace

std::vector<OverlayImage> markImages(const std::string& text, Size tile) {
    const int thick = std::clamp(tile.height / 120, 1, std::max(1, std::min(tile.width, tile.height) / 4));
    std::vector<OverlayImage> images;
    images.push_back(bar({0, 0, tile.width, thick}));
    images.push_back(bar({0, tile.height - thick, tile.width, thick}));
    images.push_back(bar({0, 0, thick, tile.height}));
    images.push_back(bar({tile.width - thick, 0, thick, tile.height}));
    const int letters = std::max(smallestLetters, tile.height / 20);
    const int room = std::max(tile.width - 4 * letters, 4 * letters);
    const TextLayout layout = layOut(drawable(text), Weight::bold, letters, room, 2);
    pango_layout_set_alignment(layout.get(), PANGO_ALIGN_CENTER);
    images.push_back(box(layout, {room, sizeOf(layout).height}, letters, tile));
    return images;
}

} // namespace screen
