// What a wall shows: all tiles, or one that is enlarged to the whole window.
//
// In the view of all tiles a click or a number (1 is the first tile) enlarges a tile. A click, or the way back, shows
// all again. Pure: the caller passes window and time. For one thread.
#pragma once

#include "appliance/operating/typed_number.h"
#include "appliance/screen/wall/wall_layout.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace screen {

struct ShownTile {
    std::size_t tile = 0;
    Rectangle at; // of the window

    bool operator==(const ShownTile&) const = default;
};

class WallView {
public:
    explicit WallView(WallLayout layout) : layout_(std::move(layout)) {}

    std::size_t tiles() const { return layout_.tiles.size(); }
    std::optional<std::size_t> enlarged() const { return enlarged_; }

    // The tiles that a window of that size shows; none in one smaller than 100x100 pixels.
    std::vector<ShownTile> shown(Size window) const;

    void click(Size window, int x, int y);

    // A digit in the view of all tiles; `now` is on gettimeusec()'s clock. 0 and numbers without a tile do nothing.
    void digit(int value, std::int64_t now);
    void tick(std::int64_t now); // completes a number of which no further digit came
    void back();

private:
    void enlargeNumber(std::optional<int> number);

    WallLayout layout_;
    std::optional<std::size_t> enlarged_;
    TypedNumber number_;
};

} // namespace screen
