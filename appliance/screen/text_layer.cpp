#include "appliance/screen/text_layer.h"

#include <algorithm>
#include <memory>
#include <pango/pangocairo.h>

namespace screen {
namespace {

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};
using Layout = std::unique_ptr<PangoLayout, Unref>;

// All sizes scale with the picture. Old monitors hide the outermost twentieth of a picture, so no text is there.
struct Measures {
    explicit Measures(int width, int height)
        : left(width / 20), top(height / 22), room(width - 2 * left), place(height * 2 / 23),
          bottom(height * 2 / 5), fontPixels(height / 20), outline(std::max(3.0, height / 120.0)) {}
    int left;
    int top;
    int room;   // width of a row
    int place;  // distance from one line to the next
    int bottom; // no text below this
    int fontPixels;
    double outline;
};

// The text with valid UTF-8 only and without control characters.
std::string drawable(const std::string& text) {
    char* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
    std::string clean = valid;
    g_free(valid);
    for (char& c : clean)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            c = ' ';
    return clean;
}

Layout layOut(cairo_t* context, const std::string& text, const Measures& measures, int rows) {
    Layout layout(pango_cairo_create_layout(context));
    PangoFontDescription* font = pango_font_description_from_string("Sans Bold");
    pango_font_description_set_absolute_size(font, measures.fontPixels * PANGO_SCALE);
    pango_layout_set_font_description(layout.get(), font);
    pango_font_description_free(font);
    pango_layout_set_text(layout.get(), text.data(), static_cast<int>(text.size()));
    pango_layout_set_width(layout.get(), measures.room * PANGO_SCALE);
    pango_layout_set_height(layout.get(), -rows); // negative: a number of rows for each paragraph
    pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD_CHAR);
    pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_END);
    pango_layout_set_alignment(layout.get(), PANGO_ALIGN_CENTER);
    return layout;
}

int heightOf(const Layout& layout) {
    int height = 0;
    pango_layout_get_pixel_size(layout.get(), nullptr, &height);
    return height;
}

// Lays out the lines; an empty text has no layout. False when they reach too far down.
bool place(cairo_t* context, const ScreenText& text, const Measures& measures, int rows,
           std::array<Layout, libcommon::osdLines>& layouts, std::array<int, libcommon::osdLines>& tops) {
    int below = 0;
    for (std::size_t line = 0; line < text.size(); ++line) {
        tops[line] = std::max(below, measures.top + static_cast<int>(line) * measures.place);
        const std::string clean = drawable(text[line]);
        layouts[line].reset();
        if (clean.find_first_not_of(' ') == std::string::npos)
            continue;
        layouts[line] = layOut(context, clean, measures, rows);
        below = tops[line] + heightOf(layouts[line]);
    }
    return below <= measures.bottom;
}

void drawOutlined(cairo_t* context, PangoLayout* layout, double x, double y, double outline) {
    cairo_move_to(context, x, y);
    pango_cairo_layout_path(context, layout);
    cairo_set_line_join(context, CAIRO_LINE_JOIN_ROUND);
    cairo_set_line_width(context, 2 * outline);
    cairo_set_source_rgba(context, 0, 0, 0, 0.85);
    cairo_stroke(context);
    // The text is drawn as text, not as a path, because a path loses the colours of coloured characters.
    cairo_move_to(context, x, y);
    cairo_set_source_rgb(context, 1, 1, 1);
    pango_cairo_show_layout(context, layout);
}

} // namespace

void Composer::TextLayer::update(const ScreenText& wanted, int pictureWidth, int pictureHeight) {
    if (wanted == text && pictureWidth == width && pictureHeight == height)
        return;
    text = wanted;
    width = pictureWidth;
    height = pictureHeight;
    cairo_surface_destroy(surface);
    surface = nullptr;
    if (std::all_of(text.begin(), text.end(), [](const std::string& line) { return line.empty(); }))
        return;
    const Measures measures(width, height);
    surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, measures.bottom + measures.place);
    cairo_t* context = cairo_create(surface);
    std::array<Layout, libcommon::osdLines> layouts;
    std::array<int, libcommon::osdLines> tops{};
    // As many rows for each line as fit for all lines.
    for (int rows = 4; rows > 0; --rows)
        if (place(context, text, measures, rows, layouts, tops))
            break;
    for (std::size_t line = 0; line < layouts.size(); ++line)
        if (layouts[line] != nullptr)
            drawOutlined(context, layouts[line].get(), measures.left, tops[line], measures.outline);
    cairo_destroy(context);
}

void Composer::TextLayer::layOver(Picture& picture) const {
    if (surface == nullptr)
        return;
    cairo_surface_t* target = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(picture.pixels.data()), CAIRO_FORMAT_RGB24, picture.width,
        picture.height, picture.width * 4);
    cairo_t* context = cairo_create(target);
    cairo_set_source_surface(context, surface, 0, 0);
    cairo_paint(context);
    cairo_destroy(context);
    cairo_surface_destroy(target);
}

} // namespace screen
