// Draws frame marks into pictures that GStreamer makes for tests.
#pragma once

#include <atomic>
#include <gst/gst.h>

namespace player {

// Must outlive the pipelines that it is applied to.
class Marking {
public:
    Marking(int source, int width, int height) : source_(source), width_(width), height_(height) {}

    // Draws a mark into each picture (BGRx of that size) that leaves the bin's element "mark". Gives each buffer
    // that leaves its element "stamp", if there is one, the present time: some encoders set none.
    void apply(GstElement* bin);

    // Gives the buffers that leave the bin's element "pace" the times of 25 pictures a second.
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
