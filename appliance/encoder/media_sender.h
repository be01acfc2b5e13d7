// Sends a codec stream as RTP with sender reports, on a thread of its own, from the moment it is made until
// it is destroyed or its output fails.
#pragma once

#include "appliance/encoder/codec_stream.h"
#include "appliance/encoder/connection.h"
#include "appliance/encoder/faults.h"
#include "appliance/encoder/media_output.h"
#include "appliance/encoder/rtp.h"

#include <atomic>
#include <memory>
#include <thread>

class MediaSender {
public:
    // `stream`, `faults` and `connection` must outlive it. `connection`: the RTSP connection that a fault may
    // cut; null for a stream without one.
    MediaSender(CodecStream& stream, std::unique_ptr<MediaOutput> output, const FaultSwitch& faults,
                Connection* connection);
    ~MediaSender();
    MediaSender(const MediaSender&) = delete;
    MediaSender& operator=(const MediaSender&) = delete;

    // Of the first packet.
    std::uint16_t firstSequence() const { return firstSequence_; }
    std::uint32_t source() const { return rtp_.source(); }

    void start();

private:
    void run();
    bool sendOne(const AccessUnit& unit, std::int64_t time);
    bool reportIfDue(const FaultSet& faults);

    CodecStream& stream_;
    const std::unique_ptr<MediaOutput> output_;
    const FaultSwitch& faults_;
    Connection* const connection_;
    RtpStream rtp_;
    const std::uint16_t firstSequence_;
    std::atomic<bool> stopping_ = false;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point nextReport_;
    std::thread thread_;
};
