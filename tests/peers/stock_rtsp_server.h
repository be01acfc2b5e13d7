// GStreamer's RTSP server with one stream, a test pattern if not told otherwise. Everything has the library's defaults
// except these options.
#pragma once

#include <memory>
#include <string>

namespace peers {

struct StockRtspOptions {
    std::string path = "/mpeg4/1/media.orv"; // or several, with commas
    std::string track{};                     // its name; "": the server's default
    bool basic = false;                      // asks for the credentials viewer/s3cret
    bool digest = false;                     // asks for them with Digest instead
    bool overTcp = false;                    // offers RTP on the RTSP connection only
    std::string address = "127.0.0.1";
    std::string port = "0"; // "0": any free one
    std::string pipeline = "( videotestsrc is-live=true ! jpegenc ! rtpjpegpay name=pay0 pt=26 )";
};

class StockRtspServer {
public:
    explicit StockRtspServer(const StockRtspOptions& options);
    ~StockRtspServer();
    StockRtspServer(const StockRtspServer&) = delete;
    StockRtspServer& operator=(const StockRtspServer&) = delete;

    unsigned short port() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace peers
