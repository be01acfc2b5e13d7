// What the gateway's port answers to RTSP, and the packets that a player gets on the connection. For the loop's thread.
#pragma once

#include "appliance/gateway/serving/player_socket.h"
#include "appliance/gateway/serving/watched_camera.h"
#include "appliance/serving/request_text.h"

#include <array>
#include <functional>
#include <string>

namespace gateway {

class RtspAnswers {
public:
    // All must outlive it. `over` ends the connection soon, not during the call.
    RtspAnswers(Cameras& cameras, PlayerSocket& socket, WatchedCamera& watched, std::function<void()> over);

    void serve(const Request& request);

private:
    void serveCamera(const Request& request, int number);
    void describe(const Request& request, int number);
    void setUp(const Request& request, int number);
    void play(const Request& request, int number);
    void stop();
    void begin();
    void takePacket(Track track, const streams::Packet& packet, bool start);
    void reply(const Request& request, int status, const std::string& headers = "",
               const std::string& reason = "", const std::string& body = "");
    std::string sessionLine() const { return "Session: " + session_ + "\r\n"; }

    Cameras& cameras_;
    PlayerSocket& socket_;
    WatchedCamera& watched_;
    const std::function<void()> over_;
    const std::string session_;
    int number_ = 0;                      // the camera that was set up; 0: none
    std::array<int, 2> channels_{-1, -1}; // of video and sound; -1: not set up
    bool dropping_ = false;               // until the next key picture
};

} // namespace gateway
