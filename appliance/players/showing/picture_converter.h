// Converts a decoded picture for the screen: scales it to BGRx, and turns and smooths it where asked.
//
// The screen is 4:3 in both modes; its pixels are not square. A picture in a size of analogue video (704 or 720
// wide and the halves of that) is treated as 4:3 and fills the screen. Any other picture has square pixels unless
// its stream says otherwise, and gets a black frame where its shape differs.
#pragma once

#include "appliance/players/showing/player_options.h"

#include <cstddef>
#include <cstdint>
#include <gst/video/video.h>

namespace player {

// A picture's place on the screen, in pixels.
struct Place {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    bool operator==(const Place&) const = default;
};

Place placeOnScreen(const GstVideoInfo& picture, int screenWidth, int screenHeight);

// Whether the picture shows combs: its two fields were taken at different times.
bool showsCombs(const GstVideoFrame& picture);

class PictureConverter {
public:
    PictureConverter(Interlace interlace, bool turned) : interlace_(interlace), turned_(turned) {}
    PictureConverter(const PictureConverter&) = delete;
    PictureConverter& operator=(const PictureConverter&) = delete;
    ~PictureConverter();

    // Fills `out`, a BGRx picture of that size without gaps between its rows. False when the format can't be
    // converted. For one thread at a time.
    bool convert(const GstVideoFrame& picture, std::uint8_t* out, int width, int height);

private:
    bool prepare(const GstVideoInfo& from, int width, int height);
    bool smooth(const GstVideoFrame& picture);

    Interlace interlace_;
    bool turned_;
    GstVideoInfo from_{}; // what converter_ converts
    GstVideoInfo to_{};
    GstVideoConverter* converter_ = nullptr;
    GstVideoInfo smoothedInfo_{};
    GstBuffer* smoothed_ = nullptr; // a smoothed picture of the size of from_; null: not needed so far
};

} // namespace player
