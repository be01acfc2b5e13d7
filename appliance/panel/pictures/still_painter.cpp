#include "appliance/panel/pictures/still_painter.h"

#include "appliance/panel/pictures/screen_size.h"

#include <libcommon/display.h>

#include <algorithm>
#include <span>
#include <utility>

namespace panel {
namespace {

constexpr int quality = 75;
constexpr int attempts = 3; // the picture may be drawn over while it is scaled

// As wide as a still, in the picture's own proportions; a picture higher than wide has that as its height.
screen::ScreenShape stillShape(const screen::PictureShape& picture) {
    screen::ScreenShape shape{
        {picture.width, picture.height}, picture.aspectNumerator, picture.aspectDenominator};
    if (screen::swapsSides(picture.turn)) {
        std::swap(shape.size.width, shape.size.height);
        std::swap(shape.aspectNumerator, shape.aspectDenominator);
    }
    screen::ScreenShape still = pictureShape(shape, StillPainter::width);
    if (still.size.height > StillPainter::width)
        still =
            screen::screenOf({std::max(2, still.size.width * StillPainter::width / still.size.height / 2 * 2),
                              StillPainter::width});
    return still;
}

} // namespace

std::optional<TakenStill> StillPainter::take(screen::FrameStore& store) {
    const std::int64_t blankedAt = std::max(store.blankedAt(), libcommon::osdBlankTime());
    for (int attempt = 0; attempt < attempts; ++attempt) {
        bool visible = false;
        const bool whole =
            store.visitNewest([&](const screen::PictureView& picture, const screen::FrameInfo& info) {
                visible = info.time > blankedAt && info.source >= 0;
                if (!visible)
                    return;
                screen::Look look;
                look.info = info;
                look.blanked = false;
                look.screen = stillShape(picture.shape);
                look.shape = picture.shape;
                look.placing = screen::place(picture.shape, look.screen, screen::Fit::bars);
                painter_.paint(&picture, look, picture_);
            });
        if (whole && visible)
            return TakenStill{picture_.info.source, picture_.info.time,
                              encodeJpeg(std::as_bytes(std::span(picture_.pixels)), picture_.width(),
                                         picture_.height(), quality)};
    }
    return std::nullopt;
}

} // namespace panel
