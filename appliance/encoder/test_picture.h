// Draws test pictures: the source's name in large letters, something that moves, the clock, a counter, and
// the frame mark along the bottom. The upper third is left quiet, since on-screen text stands there.
#pragma once

#include "appliance/encoder/picture.h"

#include <string>

class TestPicture {
public:
    // `mark` is the source number in the frame mark, and the colour depends on it, so that two sources look
    // unlike.
    TestPicture(std::string name, int width, int height, int mark);

    // Picture number `number` of a source with `fps` pictures a second.
    void draw(Picture& picture, std::uint64_t number, int fps) const;

private:
    void drawBackground();

    std::string name_;
    int mark_;
    Picture background_; // everything that stands still, drawn once
};
