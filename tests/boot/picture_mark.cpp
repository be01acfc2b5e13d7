// picture_mark FILE.png: prints what a copy of the display shows, as one line:
//   WIDTH HEIGHT LIGHT             of the display; the share of its pixels that is not black, in percent
//   WIDTH HEIGHT LIGHT SOURCE COUNTER X Y WIDTH HEIGHT      with a test picture: its mark, and where it is
// Exit status 0, or 1 with a message when there is no such picture.
#include "tests/boot/shown_picture.h"

#include <cairo.h>
#include <cstddef>
#include <cstdio>
#include <memory>

namespace {

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;

int lightPercent(const std::uint8_t* bgrx, int width, int height, int stride) {
    long light = 0;
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* pixel = bgrx + static_cast<std::ptrdiff_t>(y) * stride;
        for (int x = 0; x < width; ++x, pixel += 4)
            light += pixel[0] > 40 || pixel[1] > 40 || pixel[2] > 40 ? 1 : 0;
    }
    return static_cast<int>(light * 100 / (static_cast<long>(width) * height));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "Usage: picture_mark FILE.png\n");
        return 1;
    }
    const Surface surface(cairo_image_surface_create_from_png(argv[1]), cairo_surface_destroy);
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        std::fprintf(stderr, "%s: %s\n", argv[1],
                     cairo_status_to_string(cairo_surface_status(surface.get())));
        return 1;
    }
    const std::uint8_t* bgrx = cairo_image_surface_get_data(surface.get());
    const int width = cairo_image_surface_get_width(surface.get());
    const int height = cairo_image_surface_get_height(surface.get());
    const int stride = cairo_image_surface_get_stride(surface.get());
    std::printf("%d %d %d", width, height, lightPercent(bgrx, width, height, stride));
    if (const auto shown = findShownPicture(bgrx, width, height, stride))
        std::printf(" %d %d %d %d %d %d", shown->mark.source, shown->mark.counter, shown->x, shown->y,
                    shown->width, shown->height);
    std::printf("\n");
    return 0;
}
