#include "appliance/panel/pictures/screen_size.h"

#include <gtest/gtest.h>

namespace panel {
namespace {

using screen::screenOf;
using screen::Size;

TEST(PanelPictureSize, IsScaledDownOnly) {
    EXPECT_EQ(pictureShape(screenOf({1920, 1080}), 960).size, (Size{960, 540}));
    EXPECT_EQ(pictureShape(screenOf({3840, 2160}), 960).size, (Size{960, 540}));
    EXPECT_EQ(pictureShape(screenOf({640, 480}), 960).size, (Size{640, 480}));
}

TEST(PanelPictureSize, HasSquarePixels) {
    const screen::ScreenShape television = screen::defaultScreen(screen::VideoMode::pal);
    const screen::ScreenShape shape = pictureShape(television, 960);
    EXPECT_EQ(shape.size, (Size{768, 576}));
    EXPECT_EQ(shape.aspectNumerator, shape.aspectDenominator);
}

TEST(PanelPictureSize, IsEvenAndNeverNothing) {
    EXPECT_EQ(pictureShape(screenOf({1366, 768}), 961).size.width % 2, 0);
    EXPECT_EQ(pictureShape(screenOf({1, 1}), 960).size, (Size{2, 2}));
    EXPECT_EQ(pictureShape(screenOf({1920, 1080}), -5).size, (Size{160, 90}));
}

} // namespace
} // namespace panel
