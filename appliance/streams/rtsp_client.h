// An RTSP client: requests and their answers over TCP, or tunnelled through two HTTP connections.
#pragma once

#include "appliance/streams/byte_stream.h"
#include "appliance/streams/rtsp_credentials.h"
#include "appliance/streams/rtsp_message.h"
#include "appliance/streams/rtsp_source.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace streams {

// Gets a packet that arrived on the RTSP connection itself. The packet is valid during the call.
using TakePacket = std::function<void(int channel, std::string_view packet)>;

// For one thread.
class RtspClient {
public:
    // `source` must outlive the client; `take` is called whenever the connection is read.
    RtspClient(const RtspSource& source, TakePacket take);

    // Connects. Returns "" or the reason of the failure, for the log.
    std::string open();

    // Sends a request and waits up to source.answerMs for its answer; a 401 is answered once with credentials.
    // `headers` are whole lines with their line ends. Returns nothing when the connection broke or the time is over.
    std::optional<RtspMessage> request(const std::string& method, const std::string& url,
                                       const std::string& headers);
    std::optional<RtspMessage> request(const std::string& method, const std::string& url,
                                       const std::string& headers, int timeoutMs);

    // Sends a request without waiting for its answer.
    bool send(const std::string& method, const std::string& url, const std::string& headers);
    bool sendPacket(int channel, std::string_view packet);

    // Reads what has arrived, without waiting. False when the connection is closed or broken.
    bool read();

    // Drops the answers to requests made with send().
    void dropAnswers() { answers_.clear(); }

    int descriptor() const { return down_->descriptor(); } // to poll; -1 before open()
    std::string peer() const { return down_->peer(); }     // the encoder's numeric address

private:
    std::string openDown();
    std::string openTunnel();
    std::string tunnelRequest(const char* method, const std::string& more);
    std::string awaitTunnel(bool& again);
    std::string writeMessage(const std::string& method, const std::string& url, const std::string& headers);
    bool transmit(std::string_view bytes);
    std::optional<RtspMessage> awaitAnswer(int sequence, std::int64_t until);

    const RtspSource& source_;
    const TakePacket take_;
    RtspCredentials credentials_;
    std::unique_ptr<ByteStream> down_; // read from; without a tunnel also written to
    std::unique_ptr<ByteStream> up_;   // the tunnel's POST connection; null without a tunnel
    std::unique_ptr<RtspReader> reader_;
    std::deque<RtspMessage> answers_; // received and not yet used, oldest first
    int sequence_ = 0;
    std::string cookie_;
};

} // namespace streams
