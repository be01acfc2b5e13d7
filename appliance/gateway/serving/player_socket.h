// The socket of one accepted connection: bytes in and out, without waiting. For the loop's thread.
#pragma once

#include "appliance/gateway/loop/event_loop.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace gateway {

class PlayerSocket {
public:
    using Received = std::function<void(std::string_view bytes)>; // valid during the call
    // Owns the descriptor. The loop must outlive it. `over` is called when the other side has closed the connection, it
    // is broken, or everything was sent after endAfterSending().
    PlayerSocket(EventLoop& loop, int fd, Received received, std::function<void()> over);
    ~PlayerSocket();
    PlayerSocket(const PlayerSocket&) = delete;
    PlayerSocket& operator=(const PlayerSocket&) = delete;

    // Keeps bytes until flush().
    void send(std::string_view bytes);
    // Sends what the other side takes now; the rest follows by itself.
    void flush();
    void endAfterSending(bool ends) { endAfterSending_ = ends; }
    bool endsAfterSending() const { return endAfterSending_; }

    void stop(); // nothing is called from now on

    std::size_t waiting() const { return waiting_.size() - sent_; } // bytes to be sent
    std::int64_t lastProgress() const { return lastProgress_; }     // microseconds: bytes came or went

private:
    void onReady(std::uint32_t events);
    bool readSome();
    void sentAll();

    EventLoop& loop_;
    const int fd_;
    const Received received_;
    const std::function<void()> over_;
    std::string waiting_;  // to be sent
    std::size_t sent_ = 0; // of waiting_
    bool writable_ = true; // the socket takes more
    bool endAfterSending_ = false;
    bool stopped_ = false;
    std::int64_t lastProgress_;
};

} // namespace gateway
