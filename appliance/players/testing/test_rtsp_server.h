// An RTSP server for tests of mpeg4player, with GStreamer's own server library: nothing of ours speaks in it.
#pragma once

#include <memory>
#include <string>

namespace player {

struct RtspServerOptions {
    // The encoder and payloader, as for gst-launch; pictures of 352x288 with a frame mark come in, "pay0"
    // goes out.
    std::string encoding = "x264enc tune=zerolatency speed-preset=ultrafast bitrate=1500 key-int-max=10 ! "
                           "rtph264pay name=pay0 pt=96 config-interval=1";
    std::string sound;      // the same for sound; "" none
    int source = 9;         // in the pictures' marks
    bool basic = false;     // ask for viewer/secret
    bool digest = false;    // likewise
    bool multicast = false; // offer that only
    std::string path = "/mpeg4/1/media.orv";
};

class TestRtspServer {
public:
    explicit TestRtspServer(const RtspServerOptions& options);
    ~TestRtspServer();
    TestRtspServer(const TestRtspServer&) = delete;
    TestRtspServer& operator=(const TestRtspServer&) = delete;

    unsigned short port() const;
    void endStreams();    // that play now, as if a file were over
    int sessions() const; // that were torn down or not yet: open now
    std::string
    transports() const; // asked for so far: "udp", "tcp", "udp-mcast", in order, separated by blanks

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace player
