// One accepted connection of the gateway's port: a supervisor that detects, a player, a browser. It speaks HTTP or RTSP,
// told apart by each request's first line.
//
// Nothing here waits. Answers and packets that the other side does not take at once are kept; when too much is kept,
// packets are dropped up to the next key picture. For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/cameras.h"
#include "appliance/gateway/loop/event_loop.h"
#include "appliance/gateway/serving/http_answers.h"
#include "appliance/gateway/serving/player_socket.h"
#include "appliance/gateway/serving/request_reader.h"
#include "appliance/gateway/serving/rtsp_answers.h"
#include "appliance/gateway/serving/watched_camera.h"

#include <functional>
#include <memory>
#include <string_view>

namespace gateway {

class PlayerConnection {
public:
    // Owns the descriptor. Loop and cameras must outlive it. `ended` is called once when the connection is of no further
    // use; it must not destroy the connection at once.
    PlayerConnection(EventLoop& loop, Cameras& cameras, int fd, std::function<void()> ended);
    ~PlayerConnection();
    PlayerConnection(const PlayerConnection&) = delete;
    PlayerConnection& operator=(const PlayerConnection&) = delete;

private:
    void received(std::string_view bytes);
    void takeRequests();
    void takeRequestsSoon();
    void watchTime();
    void endSoon();
    void end();

    EventLoop& loop_;
    const std::function<void()> ended_;
    const std::shared_ptr<bool> alive_ = std::make_shared<bool>(true); // for work that is done later
    RequestReader reader_;
    PlayerSocket socket_;
    WatchedCamera watched_;
    HttpAnswers http_;
    RtspAnswers rtsp_;
    bool over_ = false;
    EventLoop::Timer timer_ = 0;
};

} // namespace gateway
