#include "appliance/players/showing/shown_shape.h"

#include <numeric>

namespace player {
namespace {

bool isAnalogueSize(int width, int height) {
    const bool columns = width == 720 || width == 704 || width == 360 || width == 352 || width == 176;
    const bool rows =
        height == 576 || height == 480 || height == 288 || height == 240 || height == 144 || height == 120;
    return columns && rows;
}

} // namespace

screen::PictureShape shownShape(screen::PictureShape decoded, bool turned) {
    if (decoded.aspectNumerator == decoded.aspectDenominator &&
        isAnalogueSize(decoded.width, decoded.height)) {
        const int width = 4 * decoded.height;
        const int height = 3 * decoded.width;
        decoded.aspectNumerator = width / std::gcd(width, height);
        decoded.aspectDenominator = height / std::gcd(width, height);
    }
    if (turned)
        decoded.turn = screen::Turn::half;
    return decoded;
}

} // namespace player
