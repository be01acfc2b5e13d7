#include "appliance/screen/text_drawing.h"

#include <algorithm>
#include <cmath>

namespace screen {
namespace {

// Layouts need no surface to be measured, only a context for the fonts.
TextLayout emptyLayout() {
    PangoContext* context = pango_font_map_create_context(pango_cairo_font_map_get_default());
    TextLayout layout(pango_layout_new(context));
    g_object_unref(context);
    return layout;
}

void setFont(PangoLayout* layout, Weight weight, int letterPixels) {
    PangoFontDescription* font =
        pango_font_description_from_string(weight == Weight::bold ? "Sans Bold" : "Sans");
    pango_font_description_set_absolute_size(font, letterPixels * PANGO_SCALE);
    pango_layout_set_font_description(layout, font);
    pango_font_description_free(font);
}

// Letters in colours are bitmaps. The path around a bitmap has a corner for each pixel: drawing it takes seconds.
bool isColoured(const PangoGlyphString* glyphs) {
    return std::any_of(glyphs->glyphs, glyphs->glyphs + glyphs->num_glyphs,
                       [](const PangoGlyphInfo& glyph) { return glyph.attr.is_color != 0; });
}

// The outlines of all letters but the coloured ones.
void addPath(cairo_t* context, PangoLayout* layout) {
    PangoLayoutIter* place = pango_layout_get_iter(layout);
    do {
        const PangoLayoutRun* run = pango_layout_iter_get_run_readonly(place);
        if (run == nullptr || isColoured(run->glyphs)) // null: the end of a row
            continue;
        PangoRectangle extents;
        pango_layout_iter_get_run_extents(place, nullptr, &extents);
        cairo_move_to(context, pango_units_to_double(extents.x),
                      pango_units_to_double(pango_layout_iter_get_baseline(place)));
        pango_cairo_glyph_string_path(context, run->item->analysis.font, run->glyphs);
    } while (pango_layout_iter_next_run(place) == TRUE);
    pango_layout_iter_free(place);
}

} // namespace

std::string drawable(const std::string& text) {
    char* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
    std::string clean = valid;
    g_free(valid);
    for (char& c : clean)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            c = ' ';
    return clean.find_first_not_of(' ') == std::string::npos ? "" : clean;
}

TextLayout layOut(const std::string& drawableText, Weight weight, int letterPixels, int room, int rows) {
    TextLayout layout = emptyLayout();
    setFont(layout.get(), weight, letterPixels);
    pango_layout_set_text(layout.get(), drawableText.data(), static_cast<int>(drawableText.size()));
    pango_layout_set_width(layout.get(), room * PANGO_SCALE);
    pango_layout_set_height(layout.get(), -rows); // negative: a number of rows for each paragraph
    pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD_CHAR);
    pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_END);
    return layout;
}

Size sizeOf(const TextLayout& layout) {
    Size size;
    pango_layout_get_pixel_size(layout.get(), &size.width, &size.height);
    return size;
}

OverlayCanvas::OverlayCanvas(const Rectangle& at) {
    image_.at = at;
    image_.pixels.resize(static_cast<std::size_t>(at.width) * static_cast<std::size_t>(at.height));
    image_.version = nextOverlayVersion();
    surface_ = cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(image_.pixels.data()),
                                                   CAIRO_FORMAT_ARGB32, at.width, at.height, 4 * at.width);
    context_ = cairo_create(surface_);
}

OverlayCanvas::~OverlayCanvas() {
    cairo_destroy(context_);
    cairo_surface_destroy(surface_);
}

OverlayImage OverlayCanvas::finish() {
    cairo_surface_finish(surface_);
    return std::move(image_);
}

OverlayImage outlined(const TextLayout& layout, int x, int y, double outline) {
    PangoRectangle ink;
    pango_layout_get_pixel_extents(layout.get(), &ink, nullptr);
    const int edge = static_cast<int>(std::ceil(outline)) + 1;
    OverlayCanvas canvas({x + ink.x - edge, y + ink.y - edge, ink.width + 2 * edge, ink.height + 2 * edge});
    cairo_t* context = canvas.context();
    cairo_translate(context, edge - ink.x, edge - ink.y);
    addPath(context, layout.get());
    cairo_set_line_join(context, CAIRO_LINE_JOIN_ROUND);
    cairo_set_line_width(context, 2 * outline);
    cairo_set_source_rgba(context, 0, 0, 0, 0.85);
    cairo_stroke(context);
    // The text is drawn as text, not as a path, because a path loses the colours of coloured characters.
    cairo_move_to(context, 0, 0);
    cairo_set_source_rgb(context, 1, 1, 1);
    pango_cairo_show_layout(context, layout.get());
    return canvas.finish();
}

} // namespace screen
