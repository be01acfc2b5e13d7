#include "tests/boot/shown_picture.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <vector>

namespace {

struct Display {
    int width, height;
    std::vector<std::uint8_t> bytes;

    Display(int w, int h) : width(w), height(h), bytes(static_cast<std::size_t>(w) * h * 4) {}
    int stride() const { return width * 4; }
    std::uint8_t* at(int x, int y) { return &bytes[(static_cast<std::size_t>(y) * width + x) * 4]; }

    // A grey picture with a mark.
    void show(int x, int y, int w, int h, FrameMark mark) {
        for (int row = y; row < y + h; ++row) {
            for (int column = x; column < x + w; ++column)
                at(column, row)[0] = at(column, row)[1] = at(column, row)[2] = 128;
        }
        drawFrameMark(at(x, y), w, h, stride(), mark);
    }
    auto find() const { return findShownPicture(bytes.data(), width, height, stride()); }
};

TEST(ShownPicture, IsFoundOnTheWholeDisplay) {
    Display display(640, 360);
    display.show(0, 0, 640, 360, {3, 77});
    const auto found = display.find();
    ASSERT_TRUE(found);
    EXPECT_EQ(found->mark, (FrameMark{3, 77}));
    EXPECT_EQ(found->width, 640);
    EXPECT_EQ(found->height, 360);
}

TEST(ShownPicture, IsFoundBetweenBars) {
    for (const bool atTheSides : {false, true}) {
        Display display(1280, 800);
        const int x = atTheSides ? 107 : 0, y = atTheSides ? 0 : 40;
        const int width = atTheSides ? 1066 : 1280, height = atTheSides ? 800 : 720;
        display.show(x, y, width, height, {2, 60'000});
        const auto found = display.find();
        ASSERT_TRUE(found);
        EXPECT_EQ(found->mark, (FrameMark{2, 60'000}));
        EXPECT_EQ(found->x, x);
        EXPECT_EQ(found->y, y);
        EXPECT_EQ(found->width, width);
        EXPECT_EQ(found->height, height);
    }
}

TEST(ShownPicture, IsNotFoundOnBlackOrGrey) {
    Display display(640, 360);
    EXPECT_FALSE(display.find());
    std::fill(display.bytes.begin(), display.bytes.end(), std::uint8_t{128});
    EXPECT_FALSE(display.find());
}

// The lines of a text console.
TEST(ShownPicture, IsNotFoundInText) {
    Display display(640, 360);
    for (int y = 10; y < 200; y += 16) {
        for (int x = 0; x < 300; x += 3)
            display.at(x, y)[1] = 200;
    }
    EXPECT_FALSE(display.find());
}

} // namespace
