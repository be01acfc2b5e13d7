// Where the tiles of a wall are in its window.
//
// A layout has 1 to 64 tiles, numbered from 0. Their places are shares of the window, so that a layout fits each size.
// Tiles of a grid touch each other without a gap: four 960x540 pictures on a 1920x1080 monitor are shown pixel for
// pixel. Pure functions: any thread.
#pragma once

#include "appliance/screen/layout.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace screen {

inline constexpr std::size_t maxWallTiles = 64;

// A tile's place. Positions and sizes are counts of the layout's columns and rows.
struct TileShare {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    bool operator==(const TileShare&) const = default;
};

struct WallLayout {
    int columns = 1; // the window's width and height in the units of TileShare
    int rows = 1;
    std::vector<TileShare> tiles; // they don't overlap
};

// Reads a layout:
//   2x2, 4x3, ...  columns x rows, 1 to 8 each; the tiles are numbered row by row
//   1+5, 1+7, ...  one large tile at the top left, and 5, 7, 9, 11, 13 or 15 small ones to its right and below it
//   0,0,50%,100%;50%,0,50%,100%
//                  left, top, width, height of each tile in percent of the window, with up to three decimals. "%" may
//                  be left out. Each tile is inside the window, at least 1% wide and high, and overlaps no other.
// Nothing with a `reason`, one sentence without a full stop, for another text.
std::optional<WallLayout> parseWallLayout(std::string_view text, std::string& reason);

// The tiles' rectangles in a window of that size, which has at least 100x100 pixels. Tiles that touch in the layout touch
// in the window.
std::vector<Rectangle> placeTiles(const WallLayout& layout, Size window);

// The tile at that point of the window; nothing where there is none.
std::optional<std::size_t> tileAt(const std::vector<Rectangle>& tiles, int x, int y);

} // namespace screen
