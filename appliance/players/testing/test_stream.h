// Live streams for tests, made with GStreamer: pictures with a frame mark, encoded and sent.
#pragma once

#include <memory>
#include <string>

namespace player {

class TestStream {
public:
    // `rest` is the pipeline for the pictures (I420, 176x144, 25 a second) up to its sink, in the syntax of
    // gst-launch. Runs until it is destroyed.
    TestStream(int source, const std::string& rest);
    ~TestStream();
    TestStream(const TestStream&) = delete;
    TestStream& operator=(const TestStream&) = delete;

    bool good() const; // whether it runs; otherwise the reason is on standard error

    // Plays an MPEG-2 elementary stream with 25 pictures a second to its end. `rest` is the pipeline for it, `more`
    // is a second branch next to it.
    static TestStream paced(const std::string& elementary, const std::string& rest,
                            const std::string& more = "");

private:
    struct State;
    explicit TestStream(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

// An MPEG-2 elementary stream of that many pictures with marks; "" when there is no encoder.
std::string mpeg2Stream(int source, int pictures);

// The stream in a container; `muxer` is "mpegtsmux" or "mpegpsmux".
std::string packed(const std::string& elementary, const std::string& muxer);

} // namespace player
