#include "appliance/screen/wall/wall_layout.h"

#include <libcommon/text.h>

#include <array>
#include <charconv>

namespace screen {
namespace {

constexpr int maxSide = 8;        // tiles in a row or column of a grid
constexpr int percentUnit = 1000; // three decimals
constexpr int whole = 100 * percentUnit;
constexpr const char* forms = "a layout is COLUMNSxROWS such as 2x2, 1+5, or rectangles such as "
                              "\"0,0,50%,100%;50%,0,50%,100%\"";

// A whole number without sign, of at most `digits` digits.
std::optional<int> number(std::string_view text, std::size_t digits) {
    int value = 0;
    const char* end = text.data() + text.size();
    if (text.empty() || text.size() > digits || text[0] == '-')
        return std::nullopt;
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

// Thousandths of a percent.
std::optional<int> percent(std::string_view text) {
    text = libcommon::trimmed(text);
    if (text.ends_with('%'))
        text = libcommon::trimmed(text.substr(0, text.size() - 1));
    const std::size_t point = text.find('.');
    const std::optional<int> before = number(text.substr(0, point), 3);
    if (!before || point == std::string_view::npos)
        return before ? std::optional(*before * percentUnit) : std::nullopt;
    std::string decimals(text.substr(point + 1));
    if (decimals.empty() || decimals.size() > 3)
        return std::nullopt;
    decimals.resize(3, '0');
    const std::optional<int> after = number(decimals, 3);
    return after ? std::optional(*before * percentUnit + *after) : std::nullopt;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    while (true) {
        const std::size_t at = text.find(separator);
        parts.push_back(text.substr(0, at));
        if (at == std::string_view::npos)
            return parts;
        text.remove_prefix(at + 1);
    }
}

std::optional<WallLayout> grid(std::string_view columns, std::string_view rows, std::string& reason) {
    const std::optional<int> across = number(columns, 4);
    const std::optional<int> down = number(rows, 4);
    if (!across || !down) {
        reason = forms;
        return std::nullopt;
    }
    if (*across < 1 || *across > maxSide || *down < 1 || *down > maxSide) {
        reason = "a wall has 1 to 8 columns and 1 to 8 rows";
        return std::nullopt;
    }
    WallLayout layout{*across, *down, {}};
    for (int y = 0; y < *down; ++y)
        for (int x = 0; x < *across; ++x)
            layout.tiles.push_back({x, y, 1, 1});
    return layout;
}

// One large tile in a square grid, and small ones in the last column and the last row.
std::optional<WallLayout> largeAndSmall(std::string_view large, std::string_view small, std::string& reason) {
    const std::optional<int> count = number(small, 4);
    if (number(large, 4) != 1 || !count) {
        reason = forms;
        return std::nullopt;
    }
    if (*count < 5 || *count > 2 * maxSide - 1 || *count % 2 == 0) {
        reason = "beside one large tile there are 5, 7, 9, 11, 13 or 15 small ones";
        return std::nullopt;
    }
    const int side = (*count + 1) / 2;
    WallLayout layout{side, side, {{0, 0, side - 1, side - 1}}};
    for (int y = 0; y < side - 1; ++y)
        layout.tiles.push_back({side - 1, y, 1, 1});
    for (int x = 0; x < side; ++x)
        layout.tiles.push_back({x, side - 1, 1, 1});
    return layout;
}

std::optional<TileShare> rectangle(std::string_view text) {
    const std::vector<std::string_view> parts = split(text, ',');
    if (parts.size() != 4)
        return std::nullopt;
    std::array<int, 4> value{};
    for (std::size_t i = 0; i < value.size(); ++i) {
        const std::optional<int> read = percent(parts[i]);
        if (!read)
            return std::nullopt;
        value[i] = *read;
    }
    return TileShare{value[0], value[1], value[2], value[3]};
}

bool overlap(const TileShare& one, const TileShare& other) {
    return one.x < other.x + other.width && other.x < one.x + one.width && one.y < other.y + other.height &&
           other.y < one.y + one.height;
}

// Why `tile` can't follow these tiles, as in "is less than 1% wide or high"; "": it can.
std::string faultOf(const TileShare& tile, const std::vector<TileShare>& tiles) {
    if (tile.width < percentUnit || tile.height < percentUnit)
        return "is less than 1% wide or high";
    if (tile.x + tile.width > whole || tile.y + tile.height > whole)
        return "reaches beyond the window";
    for (std::size_t i = 0; i < tiles.size(); ++i)
        if (overlap(tile, tiles[i]))
            return "overlaps rectangle " + std::to_string(i + 1);
    return "";
}

std::optional<WallLayout> rectangles(std::string_view text, std::string& reason) {
    WallLayout layout{whole, whole, {}};
    for (const std::string_view part : split(text, ';')) {
        const std::string which = "rectangle " + std::to_string(layout.tiles.size() + 1);
        const std::optional<TileShare> tile = rectangle(part);
        if (!tile) {
            reason = which + " is not LEFT,TOP,WIDTH,HEIGHT in percent of the window";
            return std::nullopt;
        }
        if (const std::string fault = faultOf(*tile, layout.tiles); !fault.empty()) {
            reason = which + ' ' + fault;
            return std::nullopt;
        }
        layout.tiles.push_back(*tile);
        if (layout.tiles.size() > maxWallTiles) {
            reason = "a wall has at most 64 tiles";
            return std::nullopt;
        }
    }
    return layout;
}

// The pixel at the border `share` of `total` shares, to the nearest.
int edge(int share, int total, int pixels) {
    return static_cast<int>((2LL * share * pixels + total) / (2LL * total));
}

bool contains(const Rectangle& tile, int x, int y) {
    return x >= tile.x && y >= tile.y && x < tile.x + tile.width && y < tile.y + tile.height;
}

} // namespace

std::optional<WallLayout> parseWallLayout(std::string_view text, std::string& reason) {
    text = libcommon::trimmed(text);
    if (text.find(',') != std::string_view::npos)
        return rectangles(text, reason);
    if (const std::size_t cross = text.find('x'); cross != std::string_view::npos)
        return grid(text.substr(0, cross), text.substr(cross + 1), reason);
    if (const std::size_t plus = text.find('+'); plus != std::string_view::npos)
        return largeAndSmall(text.substr(0, plus), text.substr(plus + 1), reason);
    reason = forms;
    return std::nullopt;
}

std::vector<Rectangle> placeTiles(const WallLayout& layout, Size window) {
    std::vector<Rectangle> places;
    places.reserve(layout.tiles.size());
    for (const TileShare& tile : layout.tiles) {
        const int left = edge(tile.x, layout.columns, window.width);
        const int top = edge(tile.y, layout.rows, window.height);
        const int right = edge(tile.x + tile.width, layout.columns, window.width);
        const int bottom = edge(tile.y + tile.height, layout.rows, window.height);
        places.push_back({left, top, right - left, bottom - top});
    }
    return places;
}

std::optional<std::size_t> tileAt(const std::vector<Rectangle>& tiles, int x, int y) {
    for (std::size_t i = 0; i < tiles.size(); ++i)
        if (contains(tiles[i], x, y))
            return i;
    return std::nullopt;
}

} // namespace screen
