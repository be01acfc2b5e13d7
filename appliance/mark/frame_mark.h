// The frame mark: a strip of black and white cells along the bottom of a picture that says which source drew
// it and when in that source's count of pictures. A program that looks at a screen can so tell, from the
// picture alone, which source shows and whether it moves.
//
// The strip is made for lossy roads: it lies in relative coordinates, so it survives scaling (as long as the
// whole picture is scaled, to between 160x120 and 1920x1080), and each bit is a pair of a light and a dark
// cell, one above the other, so it survives JPEG, MPEG-2, MPEG-4 and H.264 at ordinary quality, and a change
// of brightness or contrast. It takes the lowest tenth of the picture, well away from on-screen text.
//
// Pictures are 32 bits a pixel, blue first, the fourth byte unused; `stride` is the distance between two rows
// in bytes, at least 4 * width. Both functions are safe on any thread: nothing is kept between calls.
#pragma once

#include <cstdint>
#include <optional>

struct FrameMark {
    std::uint8_t source;   // the drawing source's own number, 0 to 255
    std::uint16_t counter; // advances with every picture and wraps

    bool operator==(const FrameMark&) const = default;
};

// Draws the mark over the lowest tenth of the picture. A picture that is too small for it (narrower than 64
// or lower than 40 pixels) is left as it is.
void drawFrameMark(std::uint8_t* bgrx, int width, int height, int stride, FrameMark mark);

// Reads the mark. Nothing when there is none, when it is damaged, or when the picture is too small for one.
std::optional<FrameMark> readFrameMark(const std::uint8_t* bgrx, int width, int height, int stride);
