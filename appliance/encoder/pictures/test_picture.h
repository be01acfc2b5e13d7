// Draws test pictures: the source's name in large letters, a moving ball, the clock, a counter, and the frame mark
// along the bottom. The upper third is left empty for on-screen text.
#pragma once

#include "appliance/encoder/pictures/raw_picture.h"

#include <string>

class TestPicture {
public:
    // `mark` is the source number in the frame mark. It also selects the colour, so that two sources look different.
    TestPicture(std::string name, int width, int height, int mark);

    // Picture number `number` of a source with `fps` pictures per second.
    void draw(Picture& picture, std::uint64_t number, int fps) const;

private:
    void drawBackground();

    std::string name_;
    int mark_;
    Picture background_; // everything that does not move, drawn once
};
