// GStreamer's RTSP server with one stream of a test pattern, all as its authors ship it but for what the options say.
#pragma once

#include <memory>
#include <string>

namespace peers {

struct StockRtspOptions {
    std::string path = "/mpeg4/1/media.orv";
    std::string track{}; // its name; "" as the server likes
    bool basic = false;  // asks for viewer/s3cret
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
