// One session with a camera that camera-input reads: a file, a camera at this machine, an SRT stream, a web server.
// For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/input_process.h"
#include "appliance/gateway/cameras/session.h"

namespace gateway {

class InputSession : public CameraSession {
public:
    // The loop must outlive it. `form`: of what a web server has; it ends with Fault::notUnderstood when that is wrong.
    InputSession(EventLoop& loop, CameraUrl url, input::WebForm form, SessionTimes times,
                 SessionEvents events);
    ~InputSession() override;

    void open() override;

private:
    input::Request request() const;
    void onDescribed(StreamInfo info);
    void onPacket(Track track, std::string_view packet);
    void watchSilence();
    std::chrono::milliseconds longestStart() const;
    Failure silence(std::int64_t now) const;
    void end(const Failure& failure);

    EventLoop& loop_;
    const CameraUrl url_;
    const input::WebForm form_;
    const SessionTimes times_;
    const SessionEvents events_;
    InputProcess process_;
    std::int64_t started_ = 0;    // microseconds
    std::int64_t lastPacket_ = 0; // microseconds; 0: none yet
    bool ended_ = false;
    EventLoop::Timer silenceTimer_ = 0;
};

} // namespace gateway
