// An RTSP server for tests of mpeg4player, made with GStreamer's server library, without our RTSP code.
#pragma once

#include <memory>
#include <string>

namespace player {

struct RtspServerOptions {
    // Encoder and payloader in the syntax of gst-launch. Pictures with a frame mark come in; the payloader is named "pay0".
    std::string encoding = "x264enc tune=zerolatency speed-preset=ultrafast bitrate=1500 key-int-max=10 ! "
                           "rtph264pay name=pay0 pt=96 config-interval=1";
    std::string sound{}; // the same for sound; "": no sound
    int source = 9;      // in the pictures' marks
    int width = 352;     // of the pictures
    int height = 288;
    bool seeks = true;      // false: PLAY does not seek, so that no client gets a key picture out of turn
    bool basic = false;     // require viewer/secret
    bool digest = false;    // require viewer/secret
    bool multicast = false; // offer only multicast
    std::string path = "/mpeg4/1/media.orv";
    // Certificate and key as PEM, with basic or digest: it speaks only TLS. "": it does not.
    std::string tls{};
};

class TestRtspServer {
public:
    explicit TestRtspServer(const RtspServerOptions& options);
    ~TestRtspServer();
    TestRtspServer(const TestRtspServer&) = delete;
    TestRtspServer& operator=(const TestRtspServer&) = delete;

    unsigned short port() const;
    void endStreams();    // all that are playing, as at the end of a file
    int sessions() const; // number of open sessions
    // The transports that clients requested, in order, each with a blank after it: "udp", "tcp", "udp-mcast".
    std::string transports() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace player
