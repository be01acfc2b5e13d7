// RTSP through GStreamer's RTSP server library. The library gets accepted connections from us, and one source of media
// per channel (rtsp_channel.h).
//
// Threads: a plain connection is served on its own thread. The two halves of a tunnel through HTTP are served on one
// thread for all tunnels, because the library joins the halves without locks; the same thread ends sessions that
// have timed out. A stream that is played has threads of the library and one of ours that feeds it.
#pragma once

#include "appliance/encoder/network/connection.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

class Device;

class RtspServer {
public:
    // The device must outlive it. All serve() calls must have returned before it is destroyed.
    explicit RtspServer(Device& device);
    ~RtspServer();
    RtspServer(const RtspServer&) = delete;
    RtspServer& operator=(const RtspServer&) = delete;

    // Serves a plain connection until it ends. `number` is its number in the record of requests.
    void serve(Connection& connection, std::uint64_t number);

    // Serves one half of a tunnel, plain or under TLS. Returns when the half has ended, and may return when the library
    // has joined it to the other half. `received` is its HTTP request and all bytes after it. `channel` is the channel
    // to be played, given for the half that carries the pictures. False, with nothing done, if it has no pictures.
    bool serveTunnel(Connection& connection, std::uint64_t number, const std::string& received,
                     std::optional<int> channel);

    // The SDP description of an existing channel; "" if it has no pictures. Any thread.
    std::string describe(int channel, const std::string& localAddress);

private:
    struct State;
    std::unique_ptr<State> state_;
};
