#include "appliance/screen/wall/wall_layout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace screen {
namespace {

using testing::HasSubstr;

WallLayout layoutOf(const std::string& text) {
    std::string reason;
    const std::optional<WallLayout> layout = parseWallLayout(text, reason);
    EXPECT_TRUE(layout) << text << ": " << reason;
    return layout.value_or(WallLayout{});
}

std::vector<Rectangle> placesOf(const std::string& text, Size window) {
    return placeTiles(layoutOf(text), window);
}

std::string whyNot(const std::string& text) {
    std::string reason;
    EXPECT_FALSE(parseWallLayout(text, reason)) << text;
    return reason;
}

long areaOf(const std::vector<Rectangle>& tiles) {
    long area = 0;
    for (const Rectangle& tile : tiles)
        area += static_cast<long>(tile.width) * tile.height;
    return area;
}

TEST(WallLayout, GridIsNumberedRowByRow) {
    EXPECT_EQ(placesOf("2x2", {1920, 1080}),
              (std::vector<Rectangle>{
                  {0, 0, 960, 540}, {960, 0, 960, 540}, {0, 540, 960, 540}, {960, 540, 960, 540}}));
    EXPECT_EQ(placesOf("3x1", {300, 100}),
              (std::vector<Rectangle>{{0, 0, 100, 100}, {100, 0, 100, 100}, {200, 0, 100, 100}}));
    EXPECT_EQ(placesOf("1x1", {7, 5}), (std::vector<Rectangle>{{0, 0, 7, 5}}));
}

TEST(WallLayout, EachGridCoversTheWindowWithoutGapsAndOverlaps) {
    for (int columns = 1; columns <= 8; ++columns)
        for (int rows = 1; rows <= 8; ++rows) {
            const std::string text = std::to_string(columns) + 'x' + std::to_string(rows);
            const std::vector<Rectangle> tiles = placesOf(text, {1367, 769});
            EXPECT_EQ(tiles.size(), static_cast<std::size_t>(columns * rows)) << text;
            EXPECT_EQ(areaOf(tiles), 1367L * 769) << text;
            EXPECT_EQ(tiles.back().x + tiles.back().width, 1367) << text;
            EXPECT_EQ(tiles.back().y + tiles.back().height, 769) << text;
        }
}

TEST(WallLayout, OneLargeTileHasSmallOnesAroundIt) {
    EXPECT_EQ(placesOf("1+5", {300, 300}), (std::vector<Rectangle>{{0, 0, 200, 200},
                                                                   {200, 0, 100, 100},
                                                                   {200, 100, 100, 100},
                                                                   {0, 200, 100, 100},
                                                                   {100, 200, 100, 100},
                                                                   {200, 200, 100, 100}}));
    for (const int small : {5, 7, 9, 11, 13, 15}) {
        const std::vector<Rectangle> tiles = placesOf("1+" + std::to_string(small), {1920, 1080});
        EXPECT_EQ(tiles.size(), static_cast<std::size_t>(small) + 1);
        EXPECT_EQ(areaOf(tiles), 1920L * 1080) << small;
    }
}

TEST(WallLayout, RectanglesArePercentOfTheWindow) {
    EXPECT_EQ(placesOf("0,0,50%,100%;50%,0,50%,100%", {1920, 1080}),
              (std::vector<Rectangle>{{0, 0, 960, 1080}, {960, 0, 960, 1080}}));
    EXPECT_EQ(placesOf(" 0 , 0 , 62.5 % , 100 ; 62.5,0,37.5,50 ", {1600, 900}),
              (std::vector<Rectangle>{{0, 0, 1000, 900}, {1000, 0, 600, 450}}));
    EXPECT_EQ(placesOf("0,0,33.333,100;33.333,0,33.334,100;66.667,0,33.333,100", {300, 10}),
              (std::vector<Rectangle>{{0, 0, 100, 10}, {100, 0, 100, 10}, {200, 0, 100, 10}}));
}

TEST(WallLayout, SmallestWindowStillHasATileForEach) {
    for (const std::string text : {"8x8", "1+15", "0,0,1,1;1,0,1,1;2,0,98,100"})
        for (const Rectangle& tile : placesOf(text, {100, 100})) {
            EXPECT_GE(tile.width, 1) << text;
            EXPECT_GE(tile.height, 1) << text;
        }
}

TEST(WallLayout, LargestLayoutHas64Tiles) {
    EXPECT_EQ(layoutOf("8x8").tiles.size(), maxWallTiles);
    std::string text = "0,0,1,1";
    for (int i = 1; i < 64; ++i)
        text += ';' + std::to_string(i) + ",0,1,1";
    EXPECT_EQ(layoutOf(text).tiles.size(), maxWallTiles);
    EXPECT_THAT(whyNot(text + ";0,1,1,1"), HasSubstr("at most 64"));
}

TEST(WallLayout, BadTextsAreRefusedWithTheReason) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "a layout is"},
        {"4", "a layout is"},
        {"quad", "a layout is"},
        {"x", "a layout is"},
        {"2x", "a layout is"},
        {"2x2x2", "a layout is"},
        {"-2x2", "a layout is"},
        {"2 x 2", "a layout is"},
        {"0x2", "1 to 8 columns"},
        {"9x1", "1 to 8 columns"},
        {"2x9999", "1 to 8 columns"},
        {"99999999999x2", "a layout is"},
        {"1+", "a layout is"},
        {"2+5", "a layout is"},
        {"1+4", "5, 7, 9"},
        {"1+3", "5, 7, 9"},
        {"1+17", "5, 7, 9"},
        {"0,0,50", "rectangle 1 is not LEFT,TOP,WIDTH,HEIGHT"},
        {"0,0,50,50;", "rectangle 2 is not"},
        {"0,0,50,50;0,0,50,50,50", "rectangle 2 is not"},
        {"0,0,50px,50", "rectangle 1 is not"},
        {"0,0,50,5.", "rectangle 1 is not"},
        {"0,0,50,0.1234", "rectangle 1 is not"},
        {"0,0,50,-5", "rectangle 1 is not"},
        {"0,0,50,1e1", "rectangle 1 is not"},
        {"0,0,0,50", "rectangle 1 is less than 1%"},
        {"0,0,0.999,50", "rectangle 1 is less than 1%"},
        {"0,0,50,50;60,0,50,50", "rectangle 2 reaches beyond the window"},
        {"0,0,50,50;50,0,50,50;49.999,0,1,1", "rectangle 3 overlaps rectangle 1"},
        {"999,999,999,999", "rectangle 1 reaches beyond the window"},
    };
    for (const auto& [text, reason] : cases)
        EXPECT_THAT(whyNot(text), HasSubstr(reason)) << '"' << text << '"';
}

TEST(WallLayout, PointsBelongToTheirTile) {
    const std::vector<Rectangle> tiles = placesOf("0,0,75,100;75,75,25,25", {400, 400});
    EXPECT_EQ(tileAt(tiles, 0, 0), 0U);
    EXPECT_EQ(tileAt(tiles, 299, 300), 0U);
    EXPECT_EQ(tileAt(tiles, 300, 299), std::nullopt);
    EXPECT_EQ(tileAt(tiles, 300, 300), 1U);
    EXPECT_EQ(tileAt(tiles, 399, 399), 1U);
    EXPECT_EQ(tileAt(tiles, 400, 399), std::nullopt);
    EXPECT_EQ(tileAt(tiles, -1, 5), std::nullopt);
}

} // namespace
} // namespace screen
