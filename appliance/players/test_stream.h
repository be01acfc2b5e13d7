// Live streams for tests, made by GStreamer: pictures with a frame mark, encoded, and sent somewhere.
#pragma once

#include <memory>
#include <string>

namespace player {

class TestStream {
public:
    // `rest` is what becomes of the pictures (I420, 176x144, 25 a second), as for gst-launch, up to its sink.
    // `more` is another branch beside it. Runs until it is destroyed, or ends after that many pictures (-1:
    // never).
    TestStream(int source, const std::string& rest, const std::string& more = "", int pictures = -1);
    ~TestStream();
    TestStream(const TestStream&) = delete;
    TestStream& operator=(const TestStream&) = delete;

    bool good() const; // it runs; what it lacks stands on standard error

private:
    struct State;
    std::unique_ptr<State> state_;
};

// A whole MPEG-2 elementary stream of that many marked pictures; "" when there is no encoder.
std::string mpeg2Stream(int source, int pictures);

// The same in a container: "mpegtsmux", "mpegpsmux".
std::string packed(const std::string& elementary, const std::string& muxer);

// As for gst-launch: encodes MPEG-2 and keeps up at this size. The encoder leaves its pictures without times,
// and a muxer would repeat its tables by them.
inline constexpr const char* mpeg2Encoder =
    "mpeg2enc format=3 bitrate=1000 min-gop-size=6 max-gop-size=10 b-per-refframe=0 ! mpegvideoparse ! "
    "identity name=stamp";

} // namespace player
