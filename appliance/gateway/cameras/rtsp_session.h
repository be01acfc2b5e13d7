// One session with a camera over RTSP: all requests up to PLAY, then packets, reports and keep-alives until it ends.
//
// Packets come as UDP datagrams or on the RTSP connection, as asked for; the owner decides what to try next. For the
// loop's thread.
#pragma once

#include "appliance/gateway/cameras/connection.h"
#include "appliance/gateway/cameras/stream_info.h"
#include "appliance/gateway/rtp/reordering.h"
#include "appliance/streams/datagrams.h"
#include "appliance/streams/rtsp_credentials.h"
#include "appliance/streams/rtsp_message.h"
#include "appliance/streams/stream_description.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace gateway {

struct SessionTimes {
    std::chrono::milliseconds connect{5000};
    std::chrono::milliseconds answer{5000};        // to each request
    std::chrono::milliseconds firstPacket{5000};   // after PLAY
    std::chrono::milliseconds firstDatagram{2000}; // after PLAY, over UDP
    std::chrono::milliseconds silence{5000};       // the longest pause in the stream
};

class RtspSession {
public:
    // Loop and transfers must outlive it.
    RtspSession(EventLoop& loop, Transfers& transfers, CameraUrl url, bool overUdp, SessionTimes times,
                SessionEvents events);
    ~RtspSession();
    RtspSession(const RtspSession&) = delete;
    RtspSession& operator=(const RtspSession&) = delete;

    void open();

private:
    enum class Step { connecting, describing, settingUp, starting, playing, ended };

    // Where the packets of a track arrive: on sockets or on channels of the connection.
    struct Reception {
        Track track = Track::video;
        streams::DescribedStream described;
        streams::SocketPair sockets;
        int channel = -1;                  // of the data; its reports come on the next one
        int reportPort = 0;                // of the camera, over UDP
        std::unique_ptr<Reordering> order; // over UDP
        bool ready = false;
        std::uint32_t sender = 0;  // of its newest packet
        std::uint32_t highest = 0; // its extended sequence number
        std::uint64_t packets = 0;
    };

    void onMessage(streams::RtspMessage&& message);
    void onChannel(int channel, std::string_view packet);
    void onDatagrams(Reception& reception);
    void takePacket(Reception& reception, std::string_view packet);
    void takeReports(std::string_view packet);

    void request(const std::string& method, const std::string& url, const std::string& headers);
    void sendAgain();
    void answered(const streams::RtspMessage& message);
    bool authorized(const streams::RtspMessage& message);
    void described(const streams::RtspMessage& message);
    void setUp(std::size_t number);
    void hasSetUp(const streams::RtspMessage& message);
    void play();
    void hasStarted();
    std::string transportLine(std::size_t number);
    void listen(Reception& reception);
    Failure refusal(const streams::RtspMessage& message) const;
    StreamInfo info() const;

    void expectAnswer();
    void watchSilence();
    Failure silence(std::int64_t now) const;
    void keepAlive();
    void sendReports();
    void tearDown();
    void end(const Failure& failure);
    std::string sessionLine() const;

    EventLoop& loop_;
    const CameraUrl url_;
    const bool overUdp_;
    const SessionTimes times_;
    const SessionEvents events_;
    CameraConnection connection_;
    streams::RtspCredentials credentials_;
    streams::RtspReader reader_;
    Step step_ = Step::connecting;

    std::string method_; // of the request that waits for its answer
    std::string target_;
    std::string headers_;
    int sequence_ = 0;
    int attempts_ = 0; // of that request, because of credentials

    std::string control_; // for PLAY and TEARDOWN
    std::string session_;
    int sessionTimeout_ = 60;             // seconds
    std::array<Reception, 2> receptions_; // video and sound
    std::size_t settingUp_ = 0;
    std::size_t tracks_ = 0;
    std::int64_t started_ = 0;     // when PLAY was answered, microseconds
    std::int64_t lastPacket_ = 0;  // microseconds; 0: none yet
    const std::uint32_t reporter_; // our own synchronisation source

    EventLoop::Timer answerTimer_ = 0;
    EventLoop::Timer silenceTimer_ = 0;
    EventLoop::Timer keepAliveTimer_ = 0;
    EventLoop::Timer reportTimer_ = 0;
};

} // namespace gateway
