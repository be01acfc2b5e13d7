// One session with a web server: Motion JPEG, which the gateway reads itself, or what camera-input reads. The end of the URL
// decides; where it says nothing, or something else than the server sends, the server's answer does. For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/session.h"
#include "appliance/input/protocol/web_source.h"

namespace gateway {

class WebSession : public CameraSession {
public:
    // Loop and transfers must outlive it.
    WebSession(EventLoop& loop, Transfers& transfers, CameraUrl url, SessionTimes times,
               SessionEvents events);

    void open() override;

private:
    SessionEvents eventsOfOne();
    void askServer();
    void read(input::WebForm form);
    void onForm(input::WebForm form);
    void onEnded(const Failure& failure);
    void use(std::shared_ptr<CameraSession> session);

    EventLoop& loop_;
    Transfers& transfers_;
    const CameraUrl url_;
    const SessionTimes times_;
    const SessionEvents events_;
    const input::WebForm promised_; // by the URL
    bool opened_ = false;
    bool asked_ = false; // the server decides
    Failure refusal_;    // of what the URL promised
    std::shared_ptr<CameraSession> session_;
};

} // namespace gateway
