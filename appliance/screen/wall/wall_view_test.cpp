#include "appliance/screen/wall/wall_view.h"

#include <gtest/gtest.h>

namespace screen {
namespace {

constexpr Size window{1920, 1080};
constexpr Rectangle allOfIt{0, 0, 1920, 1080};

WallView wall(const std::string& text) {
    std::string reason;
    return WallView(parseWallLayout(text, reason).value());
}

TEST(WallView, ShowsAllTilesFirst) {
    const WallView view = wall("2x2");
    const std::vector<ShownTile> shown = view.shown(window);
    ASSERT_EQ(shown.size(), 4U);
    EXPECT_EQ(shown[3], (ShownTile{3, {960, 540, 960, 540}}));
    EXPECT_EQ(view.enlarged(), std::nullopt);
}

TEST(WallView, ClickEnlargesAndTheNextOneGoesBack) {
    WallView view = wall("2x2");
    view.click(window, 1000, 10);
    EXPECT_EQ(view.shown(window), (std::vector<ShownTile>{{1, allOfIt}}));
    view.click(window, 1000, 1000);
    EXPECT_EQ(view.shown(window).size(), 4U);
}

TEST(WallView, ClickBesideTheTilesDoesNothing) {
    WallView view = wall("0,0,50,50");
    view.click(window, 1000, 1000);
    EXPECT_EQ(view.enlarged(), std::nullopt);
}

TEST(WallView, DigitEnlargesAtOnceWhereItCanOnlyMeanOneTile) {
    WallView view = wall("3x3");
    view.digit(9, 0);
    EXPECT_EQ(view.enlarged(), 8U);
    view.back();
    EXPECT_EQ(view.enlarged(), std::nullopt);
    view.digit(1, 0);
    EXPECT_EQ(view.enlarged(), 0U);
}

TEST(WallView, NumbersWithoutATileDoNothing) {
    WallView view = wall("2x2");
    for (const int digit : {0, 5, 9}) {
        view.digit(digit, 0);
        view.tick(TypedNumber::pauseUs + 1);
        EXPECT_EQ(view.enlarged(), std::nullopt) << digit;
    }
    view.digit(4, 0);
    EXPECT_EQ(view.enlarged(), 3U);
}

TEST(WallView, TwoDigitsAreOneNumberInALargeWall) {
    WallView view = wall("4x4");
    view.digit(1, 0);
    EXPECT_EQ(view.enlarged(), std::nullopt);
    view.digit(2, 1);
    EXPECT_EQ(view.enlarged(), 11U);
    view.back();
    view.digit(1, 2);
    view.tick(2 + TypedNumber::pauseUs + 1);
    EXPECT_EQ(view.enlarged(), 0U);
    view.back();
    view.digit(5, 3);
    EXPECT_EQ(view.enlarged(), 4U) << "there is no tile 50";
}

TEST(WallView, WayBackForgetsWhatWasTyped) {
    WallView view = wall("4x4");
    view.digit(1, 0);
    view.back();
    view.tick(TypedNumber::pauseUs + 1);
    EXPECT_EQ(view.enlarged(), std::nullopt);
    view.digit(1, 0);
    view.click(window, 0, 0);
    view.back();
    view.tick(TypedNumber::pauseUs + 1);
    EXPECT_EQ(view.enlarged(), std::nullopt);
}

TEST(WallView, WindowWithoutRoomShowsNothing) {
    WallView view = wall("8x8");
    EXPECT_TRUE(view.shown({99, 1000}).empty());
    view.click({99, 1000}, 5, 5);
    EXPECT_EQ(view.enlarged(), std::nullopt);
    EXPECT_EQ(view.shown({100, 100}).size(), 64U);
}

} // namespace
} // namespace screen
