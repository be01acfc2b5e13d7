// A channel's MPEG-2 stream as RTP with sender reports to a multicast group, on a thread of its own, from the
// moment it is made on.
#pragma once

#include "appliance/encoder/codec_stream.h"
#include "appliance/encoder/faults.h"
#include "appliance/encoder/rtp.h"
#include "appliance/encoder/udp_output.h"

#include <atomic>
#include <memory>
#include <thread>

class MpegVideoSender {
public:
    // `stream` and `faults` must outlive it.
    MpegVideoSender(CodecStream& stream, const FaultSwitch& faults, std::unique_ptr<UdpOutput> output);
    ~MpegVideoSender();
    MpegVideoSender(const MpegVideoSender&) = delete;
    MpegVideoSender& operator=(const MpegVideoSender&) = delete;

private:
    void run();
    void send(const AccessUnit& unit, std::int64_t time);
    void reportIfDue();

    CodecStream& stream_;
    const FaultSwitch& faults_;
    const std::unique_ptr<UdpOutput> output_;
    RtpStream rtp_{mpegVideoPayloadType};
    std::chrono::steady_clock::time_point nextReport_;
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};
