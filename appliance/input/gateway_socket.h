// camera-input's end of the socket to the gateway. All calls wait; for one thread.
#pragma once

#include "appliance/input/protocol/messages.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace input {

// Thrown when the gateway has closed the socket: the process has nothing left to do.
struct GatewayGone {};

// Thrown with the sentence that a person reads as the reason: "there is no file /a.mp4".
struct InputFailure {
    std::string reason;
    bool otherForm = false; // what a web server sends has not the request's form
};

class GatewaySocket {
public:
    // The descriptor stays the caller's.
    explicit GatewaySocket(int fd) : fd_(fd) {}

    void send(FromInput channel, std::string_view bytes) const;

    // The next message: its channel and bytes.
    std::pair<ToInput, std::string> receive();

    // Waits until then, or throws GatewayGone before.
    void waitUntil(std::chrono::steady_clock::time_point time) const;

private:
    void read(char* bytes, std::size_t count);

    int fd_;
    std::string received_;
    std::size_t used_ = 0; // of received_
};

} // namespace input
