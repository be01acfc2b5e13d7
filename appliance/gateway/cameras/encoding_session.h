// A session with a camera whose video the players may be unable to decode. It is the camera's own session as long as they
// can; otherwise camera-input decodes the video and encodes it anew. Sound is handed on. For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/input_process.h"
#include "appliance/gateway/cameras/session.h"

#include <functional>
#include <memory>

namespace gateway {

class EncodingSession : public CameraSession {
public:
    // Makes the camera's own session, with the events that it shall have.
    using Make = std::function<std::unique_ptr<CameraSession>(const SessionEvents& events)>;

    // The loop must outlive it.
    EncodingSession(EventLoop& loop, const Make& make, SessionEvents events);
    ~EncodingSession() override;

    void open() override { camera_->open(); }

private:
    void onOpened(const StreamInfo& info);
    void onPacket(Track track, std::string_view packet);
    void onEncoded(StreamInfo info);
    void end(const Failure& failure);

    EventLoop& loop_;
    const SessionEvents events_;
    std::unique_ptr<CameraSession> camera_;
    StreamInfo info_;                       // of the camera
    std::unique_ptr<InputProcess> encoder_; // null: the players can decode the video
    bool opened_ = false;
    bool ended_ = false;
    EventLoop::Timer timer_ = 0; // until the first picture is encoded
};

} // namespace gateway
