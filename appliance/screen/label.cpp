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
    cairo_set_source_rgba(context, 0, 0, 0, 0.65);
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

struct Row {
    TextLayout layout;
    int width = 0;
    int height = 0;
};

Row rowOf(const std::string& text, const Measures& measures, int room) {
    Row row{oneRow(text, measures, room), 0, 0};
    row.width = text.empty() ? 0 : widthOf(row.layout);
    row.height = sizeOf(row.layout).height;
    return row;
}

// Both texts side by side in one box. The first one is cut when there is no room. `place` says where a box of some size
// is on the screen.
template<class Place>
OverlayImage boxed(const std::string& first, const std::string& second, const Measures& measures,
                   const Place& place) {
    const Row right = rowOf(second, measures, measures.room);
    const Row left = rowOf(first, measures, measures.room - right.width);
    // Other alphabets may be higher.
    const Size box{left.width + right.width + 2 * measures.space,
                   std::max(left.height, right.height) + measures.space};
    OverlayCanvas canvas(place(box));
    drawBox(canvas.context(), box.width, box.height);
    drawText(canvas.context(), left.layout, measures.space, (box.height - left.height) / 2);
    drawText(canvas.context(), right.layout, measures.space + left.width, (box.height - right.height) / 2);
    return canvas.finish();
}

OverlayImage render(const LabelParts& parts, Size screen, int row) {
    const Measures measures(screen);
    // Name and reason have a layout of their own, so that they are cut and the rest is not.
    const std::string texts = joined(drawable(parts.name), drawable(parts.reason));
    std::string rest = joined(parts.clock, parts.still);
    if (!texts.empty() && !rest.empty())
        rest = separator + rest;
    return boxed(texts, rest, measures, [&](Size box) {
        const int top = measures.bottom - (row + 1) * box.height - row * measures.space / 2;
        return Rectangle{measures.left, top, box.width, box.height};
    });
}

} // namespace

OverlayImage middleLabel(const std::string& text, Size screen) {
    const std::string clean = drawable(text);
    if (clean.empty())
        return {};
    return boxed(clean, "", Measures(screen), [&](Size box) {
        return Rectangle{(screen.width - box.width) / 2, (screen.height - box.height) / 2, box.width,
                         box.height};
    });
}

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
