// GStreamer's RTSP server with one test pattern. Everything has the library's defaults except these options.
#pragma once

#include <memory>
#include <string>

namespace peers {

struct StockRtspOptions {
    std::string path = "/mpeg4/1/media.orv";
    std::string track{}; // its name; "": the server's default
    bool basic = false;  // asks for the credentials viewer/s3cret
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
