// GStreamer's RTSP server with one stream of a test pattern, all as its authors ship it but for the track's name.
#pragma once

#include <memory>
#include <string>

namespace peers {

class StockRtspServer {
public:
    // The stream is at `path`, its track named `track`; "" as the server likes.
    StockRtspServer(const std::string& path, const std::string& track);
    ~StockRtspServer();
    StockRtspServer(const StockRtspServer&) = delete;
    StockRtspServer& operator=(const StockRtspServer&) = delete;

    unsigned short port() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace peers
