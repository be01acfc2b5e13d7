// A picture source that GStreamer reads: a file (played round and round), a video device, or a URL, which
// makes the encoder a gateway for any camera that GStreamer can read.
//
// What stops is started again after two seconds, for ever; until then readers get no new pictures, so that a
// dead camera is never mistaken for a still one.
#pragma once

#include "appliance/encoder/picture_source.h"

#include <optional>
#include <string>

struct GstInput {
    std::string text; // a file's name, "/dev/..." or a URL
    int width;        // pictures are scaled to this size with their shape kept
    int height;
    int fps;                 // at most
    std::optional<int> mark; // the number to draw a frame mark with; none: pictures are left as they are
};

class GstSource : public PictureSource {
public:
    // Starts reading at once, on threads of its own.
    explicit GstSource(GstInput input);
    ~GstSource() override;
    int fps() const override { return input_.fps; }

    // Why an input cannot be opened at all (no such file), or "".
    static std::string mistakeIn(const std::string& text);

private:
    struct Pipeline;
    friend struct Pipeline;
    void run();
    void playOnce();
    bool stopping();
    bool isTimeForAPicture();

    const GstInput input_;
    std::thread thread_;
    bool stopping_ = false; // guarded by mutex_
    // Of the pipeline's thread alone.
    std::uint64_t number_ = 0;
    std::chrono::steady_clock::time_point nextTime_;
};

// Initialises GStreamer at the first call. Any thread.
void startGStreamer();
