#include "appliance/screen/wall/wall_view.h"

namespace screen {
namespace {

constexpr int smallestSide = 100; // pixels of a window in which each tile has some

} // namespace

std::vector<ShownTile> WallView::shown(Size window) const {
    if (window.width < smallestSide || window.height < smallestSide)
        return {};
    if (enlarged_)
        return {{*enlarged_, {0, 0, window.width, window.height}}};
    std::vector<ShownTile> all;
    for (const Rectangle& place : placeTiles(layout_, window))
        all.push_back({all.size(), place});
    return all;
}

void WallView::click(Size window, int x, int y) {
    if (enlarged_)
        return back();
    number_.clear();
    if (window.width >= smallestSide && window.height >= smallestSide)
        enlarged_ = tileAt(placeTiles(layout_, window), x, y);
}

void WallView::digit(int value, std::int64_t now) {
    enlargeNumber(number_.digit(value, static_cast<int>(tiles()) + 1, now));
}

void WallView::tick(std::int64_t now) {
    enlargeNumber(number_.tick(now));
}

void WallView::back() {
    number_.clear();
    enlarged_.reset();
}

void WallView::enlargeNumber(std::optional<int> number) {
    if (number && *number >= 1 && static_cast<std::size_t>(*number) <= tiles())
        enlarged_ = static_cast<std::size_t>(*number) - 1;
}

} // namespace screen
