// The frame mark: a strip of light and dark cells at the bottom of a picture, with the number of the source and
// its frame counter. A program can tell from the picture alone which source is shown and whether it moves.
//
// The strip survives scaling, because its coordinates are relative (the whole picture must be scaled, to
// between 160x120 and 1920x1080). Each bit is a pair of a light and a dark cell, one above the other, so the
// strip survives JPEG, MPEG-2, MPEG-4 and H.264 at ordinary quality, and a change of brightness or contrast. It
// takes the lowest tenth of the picture, far from the on-screen texts.
//
// Pictures have 32 bits for each pixel, blue first, the fourth byte unused; `stride` is the distance between
// two rows in bytes, at least 4 * width. The functions may be called on any thread; they keep no state.
#pragma once

#include <cstdint>
#include <optional>

struct FrameMark {
    std::uint8_t source;   // the number of the source, 0 to 255
    std::uint16_t counter; // grows with every picture and wraps

    bool operator==(const FrameMark&) const = default;
};

// Draws the mark over the lowest tenth of the picture. Does nothing to a picture that is too small (narrower
// than 64 or lower than 40 pixels).
void drawFrameMark(std::uint8_t* bgrx, int width, int height, int stride, FrameMark mark);

// Reads the mark; nothing when there is none, it is damaged, or the picture is too small.
std::optional<FrameMark> readFrameMark(const std::uint8_t* bgrx, int width, int height, int stride);

// The same in the luma plane of a picture, which has one byte for each pixel; `stride` is at least the width.
std::optional<FrameMark> readFrameMarkInLuma(const std::uint8_t* luma, int width, int height, int stride);
