// One session with a camera over RTSP: all requests up to PLAY, then packets, reports and keep-alives until it ends.
//
// The owner decides how packets are asked for, and what to try next. For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/reception.h"
#include "appliance/gateway/cameras/rtsp_dialogue.h"
#include "appliance/gateway/cameras/session.h"
#include "appliance/gateway/cameras/stream_info.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace gateway {

class RtspSession : public CameraSession {
public:
    // Loop and transfers must outlive it.
    RtspSession(EventLoop& loop, Transfers& transfers, CameraUrl url, Delivery delivery, SessionTimes times,
                SessionEvents events);
    ~RtspSession() override;

    void open() override;

private:
    enum class Step { describing, settingUp, starting, playing, ended };

    void answered(const streams::RtspMessage& message);
    void accepted(const streams::RtspMessage& message);
    void described(const streams::RtspMessage& message);
    void addReception(Track track, const streams::DescribedStream& stream);
    void setUp(std::size_t number);
    void hasSetUp(const streams::RtspMessage& message);
    void play();
    void hasStarted();
    StreamInfo info() const;

    void onChannel(int channel, std::string_view packet);
    void onPacket(Track track, std::string_view packet);
    void onGoodbye();

    void watchSilence();
    Failure silence(std::int64_t now) const;
    void keepAlive();
    void sendReports();
    void tearDown();
    void end(const Failure& failure);
    std::string sessionLine() const;
    bool overUdp() const;

    EventLoop& loop_;
    const CameraUrl url_;
    const Delivery delivery_;
    const SessionTimes times_;
    const SessionEvents events_;
    RtspDialogue dialogue_;
    Step step_ = Step::describing;

    std::string control_; // for PLAY and TEARDOWN
    std::string session_;
    int sessionTimeout_ = 60;                            // seconds
    std::vector<std::unique_ptr<Reception>> receptions_; // video and perhaps sound, as described
    std::size_t settingUp_ = 0;
    std::int64_t started_ = 0;     // when PLAY was answered, microseconds
    std::int64_t lastPacket_ = 0;  // microseconds; 0: none yet
    const std::uint32_t reporter_; // our own synchronisation source

    EventLoop::Timer silenceTimer_ = 0;
    EventLoop::Timer keepAliveTimer_ = 0;
    EventLoop::Timer reportTimer_ = 0;
};

} // namespace gateway
