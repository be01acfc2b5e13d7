// Live streams for tests, made by GStreamer: pictures with a frame mark, encoded, and sent somewhere.
#pragma once

#include <memory>
#include <string>

namespace player {

class TestStream {
public:
    // `rest` is what becomes of the pictures (I420, 176x144, 25 a second), as for gst-launch, up to its sink.
    // Runs until it is destroyed.
    TestStream(int source, const std::string& rest);
    ~TestStream();
    TestStream(const TestStream&) = delete;
    TestStream& operator=(const TestStream&) = delete;

    bool good() const; // it runs; what it lacks stands on standard error

    // The pictures of an MPEG-2 elementary stream, at the speed of 25 a second, up to its end; `rest` is what
    // becomes of them. `more` is another branch beside it.
    static TestStream paced(const std::string& elementary, const std::string& rest,
                            const std::string& more = "");

private:
    struct State;
    explicit TestStream(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

// A whole MPEG-2 elementary stream of that many marked pictures; "" when there is no encoder.
std::string mpeg2Stream(int source, int pictures);

// The same in a container: "mpegtsmux", "mpegpsmux".
std::string packed(const std::string& elementary, const std::string& muxer);

} // namespace player
