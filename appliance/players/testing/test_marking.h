// Frame marks in pictures that GStreamer makes for tests.
#pragma once

#include <atomic>
#include <gst/gst.h>

namespace player {

// Must stay as long as what it is applied to runs.
class Marking {
public:
    Marking(int source, int width, int height) : source_(source), width_(width), height_(height) {}

    // Draws a mark into each picture (BGRx of that size) that leaves the bin's element "mark", and stamps
    // what leaves its element "stamp", if it has one, with the time: for encoders that fail to.
    void apply(GstElement* bin);

    // Stamps what leaves the bin's element "pace" with the times of 25 pictures a second, counted from its
    // start.
    void pace(GstElement* bin);

private:
    static GstPadProbeReturn draw(GstPad* pad, GstPadProbeInfo* info, void* self);
    static GstPadProbeReturn stamp(GstPad* pad, GstPadProbeInfo* info, void* nothing);

    static GstPadProbeReturn stampByCount(GstPad* pad, GstPadProbeInfo* info, void* self);

    const int source_;
    const int width_;
    const int height_;
    std::atomic<int> counter_{0};
};

} // namespace player
