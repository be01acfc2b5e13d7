#include "appliance/screen/label.h"

#include "appliance/screen/text_drawing.h"

#include <algorithm>
#include <numbers>

namespace screen {
namespace {

constexpr const char* separator = " \u00b7 ";

// All sizes scale with the screen. Old monitors hide the outermost twentieth of a picture.
struct Measures {
    explicit Measures(Size screen)
        : letters(std::max(8, screen.height / 36)), space(letters / 2), left(screen.width / 20 - space),
          bottom(screen.height - screen.height / 22), room(screen.width - 2 * (left + space)) {}
    int letters;
    int space; // between the letters and the edge of the box
    int left;  // of the box
    int bottom;
    int room; // for the letters
};

std::string joined(const std::string& a, const std::string& b) {
    return a.empty() || b.empty() ? a + b : a + separator + b;
}

void drawBox(cairo_t* context, double width, double height) {
    const double radius = height / 5;
    const double quarter = std::numbers::pi / 2;
    cairo_arc(context, width - radius, radius, radius, -quarter, 0);
    cairo_arc(context, width - radius, height - radius, radius, 0, quarter);
    cairo_arc(context, radius, height - radius, radius, quarter, 2 * quarter);
    cairo_arc(context, radius, radius, radius, 2 * quarter, 3 * quarter);
    cairo_close_path(context);
    cairo_set_source_rgba(context, 0, 0, 0, 0.5);
    cairo_fill(context);
}

void drawText(cairo_t* context, const TextLayout& layout, int x, int y) {
    cairo_move_to(context, x, y);
    cairo_set_source_rgba(context, 1, 1, 1, 0.95);
    pango_cairo_show_layout(context, layout.get());
}

// Width of the letters, without the rest of the row. The row is as wide as its room when its text is right to left.
int widthOf(const TextLayout& layout) {
    PangoRectangle letters;
    pango_layout_get_pixel_extents(layout.get(), nullptr, &letters);
    return letters.width;
}

// A layout that begins with its first letter, whatever its direction.
TextLayout oneRow(const std::string& text, const Measures& measures, int room) {
    TextLayout layout = layOut(text, Weight::normal, measures.letters, std::max(room, measures.letters), 1);
    pango_layout_set_auto_dir(layout.get(), FALSE);
    return layout;
}

OverlayImage render(const LabelParts& parts, Size screen, int row) {
    const Measures measures(screen);
    // The name has a layout of its own, so that it alone is cut, and a name from right to left turns only itself.
    const std::string name = drawable(parts.name);
    std::string rest = joined(joined(drawable(parts.reason), parts.clock), parts.still);
    if (!name.empty() && !rest.empty())
        rest = separator + rest;
    const TextLayout restLayout = oneRow(rest, measures, measures.room);
    const int restWidth = rest.empty() ? 0 : widthOf(restLayout);
    const TextLayout nameLayout = oneRow(name, measures, measures.room - restWidth);
    const int nameWidth = name.empty() ? 0 : widthOf(nameLayout);
    // Other alphabets may be higher.
    const int height = std::max(sizeOf(nameLayout).height, sizeOf(restLayout).height);
    const int boxHeight = height + measures.space;
    OverlayCanvas canvas({measures.left, measures.bottom - (row + 1) * boxHeight - row * measures.space / 2,
                          nameWidth + restWidth + 2 * measures.space, boxHeight});
    cairo_t* context = canvas.context();
    drawBox(context, nameWidth + restWidth + 2 * measures.space, boxHeight);
    drawText(context, nameLayout, measures.space, (boxHeight - sizeOf(nameLayout).height) / 2);
    drawText(context, restLayout, measures.space + nameWidth, (boxHeight - sizeOf(restLayout).height) / 2);
    return canvas.finish();
}

} // namespace

bool Label::update(const LabelParts& parts, Size screen) {
    if (parts == parts_ && screen == screen_)
        return false;
    parts_ = parts;
    screen_ = screen;
    if (parts == LabelParts{})
        image_.reset();
    else
        image_ = render(parts, screen, row_);
    return true;
}

} // namespace screen
