// One accepted connection of the keeper's socket: a player that takes a stream, or a program that asks for the status.
//
// Nothing here waits. When a player takes too little, items are dropped up to the next key picture. For the loop's thread.
#pragma once

#include "appliance/gateway/loop/event_loop.h"
#include "appliance/gateway/serving/player_socket.h"
#include "appliance/gateway/warm/warm_stream.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace gateway {

class WarmConnection {
public:
    struct Answers {
        std::function<WarmStream*(const std::string& address)> find; // null: not kept
        std::function<std::string()> status;
    };
    // Owns the descriptor. The loop must outlive it. `over` is called once when the connection is of no further use; it
    // must not destroy the connection at once.
    WarmConnection(EventLoop& loop, int fd, Answers answers, std::function<void()> over);
    ~WarmConnection();
    WarmConnection(const WarmConnection&) = delete;
    WarmConnection& operator=(const WarmConnection&) = delete;

private:
    void received(std::string_view bytes);
    void answer(const std::string& request);
    void take(const std::string& address);
    WarmTaker taker();
    void takeItem(const KeptItem& item, bool start);
    void send(streams::KeptFrame kind, std::string_view content);
    void end();

    const Answers answers_;
    const std::function<void()> over_;
    std::string request_;
    bool answered_ = false;
    bool joining_ = false;  // what is kept is handed over, however much it is
    bool dropping_ = false; // until the next key picture
    bool ended_ = false;
    WarmStream* stream_ = nullptr; // that is taken; it tells its end
    WarmStream::TakerId taker_ = 0;
    PlayerSocket socket_;
};

} // namespace gateway
