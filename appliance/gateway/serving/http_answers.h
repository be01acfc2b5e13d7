// What the gateway's port answers to HTTP: parameters, and the pictures of Motion JPEG cameras. For the loop's thread.
#pragma once

#include "appliance/gateway/serving/player_socket.h"
#include "appliance/gateway/serving/watched_camera.h"
#include "appliance/serving/request_text.h"

#include <functional>
#include <string>

namespace gateway {

class HttpAnswers {
public:
    // All must outlive it. `over` ends the connection soon, not during the call.
    HttpAnswers(Cameras& cameras, PlayerSocket& socket, WatchedCamera& watched, std::function<void()> over);

    void serve(const Request& request);
    // Answers something that is no request, and ends the connection.
    void refuse(const std::string& mistake);

private:
    void servePictures(const Request& request);
    void beginPictures(int number, const StreamInfo& info, const Failure& failure);
    void reply(int status, const std::string& text);
    void takePicture(const streams::Packet& jpeg);

    Cameras& cameras_;
    PlayerSocket& socket_;
    WatchedCamera& watched_;
    const std::function<void()> over_;
};

} // namespace gateway
