// A test tone as MPEG audio (layer II, 48 kHz) in RTP to a multicast group, from the moment it is made on.
#pragma once

#include "appliance/encoder/sdp.h"

#include <atomic>
#include <string>
#include <thread>

class MpegAudioSender {
public:
    MpegAudioSender(std::string localAddress, MulticastPlace place);
    ~MpegAudioSender();
    MpegAudioSender(const MpegAudioSender&) = delete;
    MpegAudioSender& operator=(const MpegAudioSender&) = delete;

    // Why it cannot be had on this machine, or "".
    static std::string mistake();

private:
    void run();

    const std::string localAddress_;
    const MulticastPlace place_;
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};
