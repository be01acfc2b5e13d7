// Requests to a camera over RTSP and their answers, one at a time, on a connection that may also carry packets.
//
// It adds the sequence number and the credentials, and repeats a request that the camera refuses for its credentials. For
// the loop's thread.
#pragma once

#include "appliance/gateway/cameras/connection.h"
#include "appliance/gateway/cameras/session.h"
#include "appliance/streams/rtsp_credentials.h"
#include "appliance/streams/rtsp_message.h"

#include <functional>
#include <string>
#include <string_view>

namespace gateway {

struct DialogueEvents {
    std::function<void()> connected;
    std::function<void(const streams::RtspMessage& answer)> answered; // to the last request, with any status
    std::function<void(int channel, std::string_view packet)> packet; // valid during the call
    std::function<void()> pause;                                      // all that has arrived was passed on
    std::function<void(const Failure& failure)> ended;                // once; nothing more comes
};

class RtspDialogue {
public:
    // Loop and transfers must outlive it.
    RtspDialogue(EventLoop& loop, Transfers& transfers, const CameraUrl& url, const SessionTimes& times,
                 DialogueEvents events);
    ~RtspDialogue();
    RtspDialogue(const RtspDialogue&) = delete;
    RtspDialogue& operator=(const RtspDialogue&) = delete;

    void open();

    // Sends a request; `headers` are whole lines. The dialogue ends when the answer takes longer than
    // SessionTimes::answer; with `patient` it may never come.
    void request(const std::string& method, const std::string& url, const std::string& headers,
                 bool patient = false);
    const std::string& method() const { return method_; } // of the last request

    // Sends a last request, as far as the socket takes it at once, and ends without an event.
    void sayGoodbye(const std::string& method, const std::string& url, const std::string& headers);

    // Sends a packet on a channel of the connection.
    void sendPacket(int channel, std::string_view packet);

    void close(); // no event from now on
    bool isOpen() const { return !over_ && connection_.isOpen(); }
    std::string peer() const { return connection_.peer(); }   // numeric address of the camera
    std::string local() const { return connection_.local(); } // our own towards it

private:
    void onMessage(const streams::RtspMessage& message);
    void sendAgain();
    std::string headOf(const std::string& method, const std::string& url);
    void expectAnswer();
    void stop();
    void end(const Failure& failure);

    EventLoop& loop_;
    const CameraUrl url_;
    const SessionTimes times_;
    const DialogueEvents events_;
    CameraConnection connection_;
    streams::RtspCredentials credentials_;
    streams::RtspReader reader_;
    bool over_ = false;

    std::string method_; // of the last request
    std::string target_;
    std::string headers_;
    bool patient_ = false;
    int sequence_ = 0;
    int attempts_ = 0; // of that request, because of credentials
    EventLoop::Timer answerTimer_ = 0;
};

} // namespace gateway
