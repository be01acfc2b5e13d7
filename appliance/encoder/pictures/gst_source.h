// A picture source that GStreamer reads: a file (in a loop), a video device, or a URL. With a URL the encoder is a
// gateway for any camera that GStreamer can read.
//
// An input that stops is started again every two seconds. Until then readers get no pictures: a dead camera must not
// look like a still picture.
#pragma once

#include "appliance/encoder/pictures/picture_source.h"

#include <optional>
#include <string>

struct GstInput {
    std::string text; // a file's name, "/dev/..." or a URL
    int width;        // pictures are scaled to this size with their shape kept
    int height;
    int fps;                 // the most pictures per second
    std::optional<int> mark; // source number of a frame mark to be drawn; none: no mark
};

class GstSource : public PictureSource {
public:
    // Starts reading at once, on its own threads.
    explicit GstSource(GstInput input);
    ~GstSource() override;
    int fps() const override { return input_.fps; }

    // Why an input can never be opened (for example, the file does not exist), or "".
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
    // Used only by the pipeline's thread.
    std::uint64_t number_ = 0;
    std::chrono::steady_clock::time_point nextTime_;
};
