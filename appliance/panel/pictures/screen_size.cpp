#include "appliance/panel/pictures/screen_size.h"

#include <algorithm>
#include <cmath>

namespace panel {
namespace {

int even(double value) {
    return std::max(2, static_cast<int>(std::lround(value / 2)) * 2);
}

} // namespace

screen::ScreenShape pictureShape(const screen::ScreenShape& screen, int mostWidth) {
    const double squareWidth = static_cast<double>(screen.size.width) * screen.aspectNumerator /
                               std::max(screen.aspectDenominator, 1);
    const double width = std::min<double>(squareWidth, std::max(mostWidth, 160));
    return screen::screenOf({even(width), even(screen.size.height * width / squareWidth)});
}

} // namespace panel
