// The pictures in GStreamer's samples.
#pragma once

#include "appliance/screen/picture_shape.h"

#include <functional>
#include <gst/video/video.h>

namespace player {

// Reads pictures from samples. Pictures in I420 and NV12 are given as they are in memory; those in other formats are
// converted to I420 and those that are too large for the screen are scaled down. For one thread at a time.
class SamplePictures {
public:
    SamplePictures() = default;
    SamplePictures(const SamplePictures&) = delete;
    SamplePictures& operator=(const SamplePictures&) = delete;
    ~SamplePictures();

    // Calls `give` with the sample's picture. Drops samples without a picture, and, with a log line the first time,
    // pictures that can't be converted.
    void take(GstSample* sample, const std::function<void(const screen::PictureView&)>& give);

private:
    void prepare();
    bool convert(const GstVideoFrame& picture);

    GstCaps* caps_ = nullptr;                // of the last sample
    GstVideoInfo from_{};                    // of these caps
    GstVideoInfo to_{};                      // what converter_ makes of it
    GstVideoConverter* converter_ = nullptr; // null: not needed, or not possible
    GstBuffer* converted_ = nullptr;
};

} // namespace player
