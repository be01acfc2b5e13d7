#include "appliance/screen/layout.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ostream>
#include <vector>

namespace screen {

void PrintTo(const Rectangle& r, std::ostream* out) {
    *out << r.width << 'x' << r.height << '+' << r.x << '+' << r.y;
}

namespace {

PictureShape picture(int width, int height, int numerator = 1, int denominator = 1, Turn turn = Turn::none) {
    PictureShape shape;
    shape.width = width;
    shape.height = height;
    shape.aspectNumerator = numerator;
    shape.aspectDenominator = denominator;
    shape.turn = turn;
    return shape;
}

struct Case {
    PictureShape picture;
    Size screen;
    Fit fit;
    Rectangle from;
    Rectangle to;
};

const std::vector<Case> cases{
    // One to one.
    {picture(1920, 1080), {1920, 1080}, Fit::bars, {0, 0, 1920, 1080}, {0, 0, 1920, 1080}},
    {picture(1920, 1080), {1920, 1080}, Fit::fill, {0, 0, 1920, 1080}, {0, 0, 1920, 1080}},
    {picture(1920, 1080), {1920, 1080}, Fit::crop, {0, 0, 1920, 1080}, {0, 0, 1920, 1080}},
    {picture(720, 576, 16, 15), {720, 576}, Fit::bars, {0, 0, 720, 576}, {0, 0, 720, 576}},
    {picture(720, 480, 8, 9), {720, 480}, Fit::crop, {0, 0, 720, 480}, {0, 0, 720, 480}},
    {picture(1920, 1088), {1920, 1080}, Fit::crop, {0, 4, 1920, 1080}, {0, 0, 1920, 1080}},
    // 4:3 on 16:9.
    {picture(640, 480), {1920, 1080}, Fit::bars, {0, 0, 640, 480}, {240, 0, 1440, 1080}},
    {picture(640, 480), {1920, 1080}, Fit::fill, {0, 0, 640, 480}, {0, 0, 1920, 1080}},
    {picture(640, 480), {1920, 1080}, Fit::crop, {0, 60, 640, 360}, {0, 0, 1920, 1080}},
    {picture(720, 576, 16, 15), {1280, 720}, Fit::bars, {0, 0, 720, 576}, {160, 0, 960, 720}},
    {picture(720, 480, 8, 9), {1280, 720}, Fit::bars, {0, 0, 720, 480}, {160, 0, 960, 720}},
    // 16:9 on a television: its pixels are not square.
    {picture(1280, 720), {720, 576}, Fit::bars, {0, 0, 1280, 720}, {0, 72, 720, 432}},
    {picture(1280, 720), {720, 576}, Fit::fill, {0, 0, 1280, 720}, {0, 0, 720, 576}},
    {picture(1280, 720), {720, 576}, Fit::crop, {160, 0, 960, 720}, {0, 0, 720, 576}},
    {picture(720, 576, 64, 45), {720, 576}, Fit::bars, {0, 0, 720, 576}, {0, 72, 720, 432}},
    {picture(640, 480), {720, 576}, Fit::bars, {0, 0, 640, 480}, {0, 0, 720, 576}},
    {picture(640, 480), {720, 480}, Fit::bars, {0, 0, 640, 480}, {0, 0, 720, 480}},
    // A shape that says square pixels is believed, whatever its size.
    {picture(720, 576), {1920, 1080}, Fit::bars, {0, 0, 720, 576}, {285, 0, 1350, 1080}},
    // Turned.
    {picture(1920, 1080, 1, 1, Turn::half), {1920, 1080}, Fit::bars, {0, 0, 1920, 1080}, {0, 0, 1920, 1080}},
    {picture(1920, 1080, 1, 1, Turn::right),
     {1920, 1080},
     Fit::bars,
     {0, 0, 1920, 1080},
     {656, 0, 608, 1080}},
    {picture(1920, 1080, 1, 1, Turn::left), {1080, 1920}, Fit::bars, {0, 0, 1920, 1080}, {0, 0, 1080, 1920}},
    {picture(1920, 1080, 1, 1, Turn::right),
     {1080, 1080},
     Fit::crop,
     {420, 0, 1080, 1080},
     {0, 0, 1080, 1080}},
    {picture(720, 576, 16, 15, Turn::left), {768, 1024}, Fit::bars, {0, 0, 720, 576}, {0, 0, 768, 1024}},
    // Portrait, odd, tiny and long ones.
    {picture(1080, 1920), {1920, 1080}, Fit::bars, {0, 0, 1080, 1920}, {656, 0, 608, 1080}},
    {picture(1080, 1920), {1920, 1080}, Fit::crop, {0, 656, 1080, 608}, {0, 0, 1920, 1080}},
    {picture(641, 361), {1280, 720}, Fit::bars, {0, 0, 641, 361}, {1, 0, 1278, 720}},
    {picture(641, 361), {641, 361}, Fit::bars, {0, 0, 641, 361}, {0, 0, 641, 361}},
    {picture(1, 1), {1280, 720}, Fit::bars, {0, 0, 1, 1}, {280, 0, 720, 720}},
    {picture(1, 1), {1280, 720}, Fit::crop, {0, 0, 1, 1}, {0, 0, 1280, 720}},
    {picture(4096, 1), {1280, 720}, Fit::bars, {0, 0, 4096, 1}, {0, 359, 1280, 1}},
    {picture(1, 4096), {1280, 720}, Fit::bars, {0, 0, 1, 4096}, {639, 0, 1, 720}},
    {picture(4096, 1), {1280, 720}, Fit::crop, {2046, 0, 2, 1}, {0, 0, 1280, 720}},
    {picture(4096, 4096, 65535, 1), {3840, 2160}, Fit::bars, {0, 0, 4096, 4096}, {0, 1079, 3840, 1}},
    {picture(4096, 4096, 1, 65535), {3840, 2160}, Fit::crop, {0, 2046, 4096, 1}, {0, 0, 3840, 2160}},
};

TEST(Layout, Table) {
    for (const Case& c : cases) {
        const Placing placing = place(c.picture, screenOf(c.screen), c.fit);
        const auto what = testing::Message()
                          << c.picture.width << 'x' << c.picture.height << " on " << c.screen.width << 'x'
                          << c.screen.height << ", fit " << static_cast<int>(c.fit);
        EXPECT_EQ(placing.from, c.from) << what;
        EXPECT_EQ(placing.to, c.to) << what;
        EXPECT_EQ(placing.turn, c.picture.turn) << what;
    }
}

bool isInside(const Rectangle& inner, int width, int height) {
    return inner.x >= 0 && inner.y >= 0 && inner.width >= 1 && inner.height >= 1 &&
           inner.x + inner.width <= width && inner.y + inner.height <= height;
}

TEST(Layout, BothRectanglesAreInside) {
    const std::vector<int> sides{1, 2, 3, 17, 240, 719, 1080, 4095, 4096};
    for (const int width : sides)
        for (const int height : sides)
            for (const int aspect : {1, 2, 15, 65535})
                for (const Turn turn : {Turn::none, Turn::right, Turn::half, Turn::left})
                    for (const Size screen : {Size{160, 120}, Size{720, 576}, Size{3840, 2160}, Size{1, 1}})
                        for (const Fit fit : {Fit::bars, Fit::fill, Fit::crop}) {
                            const PictureShape shape = picture(width, height, aspect, 16, turn);
                            const Placing placing = place(shape, screenOf(screen), fit);
                            ASSERT_TRUE(isInside(placing.from, width, height));
                            ASSERT_TRUE(isInside(placing.to, screen.width, screen.height));
                            ASSERT_EQ(placing.from.x % 2, 0);
                            ASSERT_EQ(placing.from.y % 2, 0);
                        }
}

TEST(Layout, ProportionsAreKept) {
    for (const int width : {320, 640, 704, 1279, 1920})
        for (const int height : {240, 480, 577, 1080})
            for (const Fit fit : {Fit::bars, Fit::crop}) {
                const ScreenShape screen = screenOf({1366, 768});
                const Placing placing = place(picture(width, height, 16, 15), screen, fit);
                const double before = double(placing.from.width) * 16 / (double(placing.from.height) * 15);
                const double after = double(placing.to.width) / placing.to.height;
                EXPECT_NEAR(after / before, 1, 0.005) << width << 'x' << height;
            }
}

TEST(Layout, OneToOneIsWithoutScaling) {
    EXPECT_TRUE(place(picture(1920, 1080), screenOf({1920, 1080}), Fit::bars).oneToOne());
    EXPECT_TRUE(place(picture(1920, 1080, 1, 1, Turn::left), screenOf({1080, 1920}), Fit::bars).oneToOne());
    EXPECT_TRUE(place(picture(1920, 1088), screenOf({1920, 1080}), Fit::crop).oneToOne());
    EXPECT_FALSE(place(picture(1920, 1088), screenOf({1920, 1080}), Fit::bars).oneToOne());
    EXPECT_FALSE(place(picture(1920, 1080, 1, 1, Turn::left), screenOf({1920, 1080}), Fit::fill).oneToOne());
}

TEST(Layout, OnlyTelevisionsHaveOtherThanSquarePixels) {
    EXPECT_EQ(screenOf({720, 576}), (ScreenShape{{720, 576}, 16, 15}));
    EXPECT_EQ(screenOf({720, 480}), (ScreenShape{{720, 480}, 8, 9}));
    EXPECT_EQ(screenOf({1280, 720}), (ScreenShape{{1280, 720}, 1, 1}));
    EXPECT_EQ(defaultScreen(VideoMode::ntsc), screenOf({720, 480}));
}

} // namespace
} // namespace screen
