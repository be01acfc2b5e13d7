// From a decoded picture to one that fits the screen: scaled, in BGRx, turned, smoothed.
//
// The screen is 4:3 in either mode, whatever its pixels are. A picture of the sizes that analogue video has
// (704 or 720 wide and their halves) counts as 4:3 and fills the screen; any other has square pixels unless
// its stream says otherwise, and is framed in black where its shape is another.
#pragma once

#include "appliance/players/showing/player_options.h"

#include <cstddef>
#include <cstdint>
#include <gst/video/video.h>

namespace player {

// Where a picture lies on the screen, in pixels.
struct Place {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    bool operator==(const Place&) const = default;
};

Place placeOnScreen(const GstVideoInfo& picture, int screenWidth, int screenHeight);

// Whether the picture shows the combs of two fields that were taken at different times.
bool showsCombs(const GstVideoFrame& picture);

class PictureConverter {
public:
    PictureConverter(Interlace interlace, bool turned) : interlace_(interlace), turned_(turned) {}
    PictureConverter(const PictureConverter&) = delete;
    PictureConverter& operator=(const PictureConverter&) = delete;
    ~PictureConverter();

    // Fills `out`, a BGRx picture of that size without gaps between its rows. False when the picture's format
    // can't be converted. One thread at a time.
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
    GstBuffer* smoothed_ = nullptr; // a smoothed picture of from_'s size; null: none needed yet
};

} // namespace player
