// One accepted connection of the gateway's port: a supervisor that detects, a player, a browser. It speaks HTTP or RTSP
// and tells the two apart by the first line.
//
// Nothing here waits. Answers and packets that the other side does not take at once are kept; when too much is kept,
// packets are dropped up to the next key picture. For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/cameras.h"
#include "appliance/gateway/loop/event_loop.h"
#include "appliance/serving/request_text.h"

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
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
    void onReady(std::uint32_t events);
    bool readSome();
    void takeReceived();
    bool takeInterleaved();
    bool takeRequest();

    void serveHttp(const Request& request);
    void servePictures(const Request& request);
    void serveRtsp(const Request& request);
    void describe(const Request& request, int number);
    void setUp(const Request& request, int number);
    void play(const Request& request, int number);
    void stopPlaying();

    Viewer packetViewer();
    Viewer pictureViewer();
    void takePacket(Track track, const Packet& packet, bool start);
    void takePicture(const Packet& jpeg);

    void replyHttp(int status, const std::string& type, const std::string& body);
    void replyRtsp(const Request& request, int status, const std::string& reason, const std::string& headers,
                   const std::string& body = "");
    void send(std::string_view bytes);
    void flush();
    void watchTime();
    void end();

    EventLoop& loop_;
    Cameras& cameras_;
    const int fd_;
    const std::function<void()> ended_;
    // Answers of cameras may come when this connection is gone; they look here first.
    const std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    std::string received_;
    std::string waiting_;  // to be sent
    std::size_t sent_ = 0; // of waiting_
    bool writable_ = true; // the socket takes more
    bool over_ = false;
    bool endAfterSending_ = false;
    bool asking_ = false;           // a camera's answer is awaited; further requests wait
    bool dropping_ = false;         // until the next key picture
    std::int64_t lastProgress_ = 0; // microseconds: bytes came or went
    EventLoop::Timer timer_ = 0;

    int number_ = 0; // the camera that is played; 0: none
    Camera::ViewerId viewer_ = 0;
    std::string session_;
    std::array<int, 2> channels_{-1, -1}; // of video and sound; -1: not set up
};

} // namespace gateway
