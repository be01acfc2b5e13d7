// Talking RTSP: over TCP, or tunnelled through two HTTP connections.
#pragma once

#include "appliance/players/byte_stream.h"
#include "appliance/players/player_options.h"
#include "appliance/players/rtsp_credentials.h"
#include "appliance/players/rtsp_message.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace player {

// Takes a packet that comes on the connection itself.
using TakePacket = std::function<void(int channel, std::string_view packet)>;

// One thread.
class RtspConnection {
public:
    // `options` must stay; `take` gets interleaved packets whenever the connection is read.
    RtspConnection(const PlayerOptions& options, TakePacket take);

    // "" or why there is no connection, for people.
    std::string open();

    // Sends a request and waits for its answer at most that long; a 401 is answered once with credentials.
    // `headers` are whole lines with their ends. Nothing when the connection is broken or the time is over.
    std::optional<RtspMessage> request(const std::string& method, const std::string& url,
                                       const std::string& headers, int timeoutMs);

    // Sends a request whose answer is not waited for.
    bool send(const std::string& method, const std::string& url, const std::string& headers);
    bool sendPacket(int channel, std::string_view packet);

    // Reads what is there. False when the connection is closed or broken.
    bool read();

    // Forgets answers that nobody waits for.
    void forgetAnswers() { answers_.clear(); }

    int descriptor() const { return down_->descriptor(); }
    std::string peer() const { return down_->peer(); }

private:
    std::string openDown();
    std::string openTunnel();
    std::string tunnelRequest(const char* method, const std::string& more);
    std::string awaitTunnel(bool& refused);
    std::string writeMessage(const std::string& method, const std::string& url, const std::string& headers);
    bool transmit(std::string_view bytes);
    std::optional<RtspMessage> awaitAnswer(int sequence, std::int64_t until);

    const PlayerOptions& options_;
    const TakePacket take_;
    RtspCredentials credentials_;
    std::unique_ptr<ByteStream> down_; // what we read, and without a tunnel also write
    std::unique_ptr<ByteStream> up_;   // a tunnel's other connection; null: none
    std::unique_ptr<RtspReader> reader_;
    std::deque<RtspMessage> answers_; // responses that came, oldest first
    int sequence_ = 0;
    std::string cookie_;
};

} // namespace player
