#include "appliance/screen/monitor/back_end.h"

namespace screen {

Rectangle inWindow(const Part& part, const Rectangle& onScreen) {
    const Size& size = part.look->screen.size;
    const auto scaled = [](int value, int to, int from) {
        return static_cast<int>((std::int64_t{value} * to * 2 + from) / (std::int64_t{from} * 2));
    };
    const int left = scaled(onScreen.x, part.at.width, size.width);
    const int top = scaled(onScreen.y, part.at.height, size.height);
    const int right = scaled(onScreen.x + onScreen.width, part.at.width, size.width);
    const int bottom = scaled(onScreen.y + onScreen.height, part.at.height, size.height);
    return {part.at.x + left, part.at.y + top, right - left, bottom - top};
}

PartMark markOf(const Part& part) {
    const Look& look = *part.look;
    PartMark mark;
    mark.overlays = look.overlayVersion;
    mark.screen = look.screen;
    mark.at = part.at;
    if (!look.blanked) {
        mark.frame = look.info.number;
        mark.shape = look.shape;
        mark.placing = look.placing;
    }
    return mark;
}

} // namespace screen
