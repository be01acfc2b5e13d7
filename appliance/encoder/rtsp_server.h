// RTSP, spoken by GStreamer's RTSP server library. It is given connections that were accepted elsewhere, and one
// source of media for each channel (rtsp_media.h).
//
// Threads: a plain connection's requests are served on that connection's own thread. The two halves of a tunnel
// through HTTP are served on one thread for all tunnels, because the library joins them without locks; the same
// thread ends sessions that nobody keeps alive. A stream that is watched has threads of the library's own, and
// one that feeds it.
#pragma once

#include "appliance/encoder/connection.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

class Device;

// The channel of a path "/mpeg4/N/media.orv" or "/mpeg4/quad/media.orv" (0), also with a track's name behind it.
std::optional<int> mediaChannelOf(std::string_view path);

class RtspServer {
public:
    // The device must outlive it; no connection may be served any more when it goes.
    explicit RtspServer(Device& device);
    ~RtspServer();
    RtspServer(const RtspServer&) = delete;
    RtspServer& operator=(const RtspServer&) = delete;

    // Returns when the connection has ended, or has become a half of another's tunnel.
    void serve(Connection& connection, std::uint64_t number);
    // `begun`: the HTTP request that opens this half of the tunnel, and what came after it. `channel`: the one
    // whose pictures will come back on this half; none for the other half. False, with nothing done, when that
    // has no pictures.
    bool serveTunnel(Connection& connection, std::uint64_t number, const std::string& begun,
                     std::optional<int> channel);

    // The description of a channel that is there; "" when it has no pictures. Any thread.
    std::string describe(int channel, const std::string& localAddress);

private:
    struct State;
    std::unique_ptr<State> state_;
};
