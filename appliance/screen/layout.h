// Where a picture goes on the screen.
//
// The screen has a size of its own, whatever the cameras send. A picture is turned, scaled and centred on it. Its
// shape alone says how wide its pixels are; nothing is guessed from its size. Pure functions: any thread.
#pragma once

#include "appliance/screen/picture_shape.h"

namespace screen {

struct Size {
    int width = 0; // pixels
    int height = 0;

    bool operator==(const Size&) const = default;
};

struct Rectangle {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    bool operator==(const Rectangle&) const = default;
};

enum class Fit {
    bars, // the whole picture in its own proportions, with black bars where it does not cover the screen
    fill, // the whole picture, stretched to cover the screen
    crop, // in its own proportions; it covers the screen, and what does not fit is cut off at both sides
};

// The pixels of a screen are square, except those of a television (720x576 and 720x480), which is 4:3.
struct ScreenShape {
    Size size;
    int aspectNumerator = 1; // width of a pixel : its height, 1 to maxPixelAspect
    int aspectDenominator = 1;

    bool operator==(const ScreenShape&) const = default;
};

// The screen of that size, which is at least 1x1.
ScreenShape screenOf(Size size);

// The screen where nothing else is known: the television of that mode.
ScreenShape defaultScreen(VideoMode mode);

// First `from` is cut out of the picture and turned, then it is scaled to the size of `to`.
struct Placing {
    Rectangle from; // of the picture before it is turned; it begins at an even column and an even row
    Rectangle to;   // of the screen
    Turn turn = Turn::none;

    bool operator==(const Placing&) const = default;

    // No pixel is scaled.
    bool oneToOne() const;
};

// Places a picture, whose shape has no fault, on the screen. A picture of the screen's size and pixel shape is placed
// one to one, whatever `fit` says. Both rectangles have at least one pixel and are inside picture and screen.
Placing place(const PictureShape& picture, const ScreenShape& screen, Fit fit);

// Whether this turn makes columns of rows.
bool swapsSides(Turn turn);

} // namespace screen
