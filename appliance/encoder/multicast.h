// A channel's multicasts. The one that RTSP offers runs while at least one client plays it; the one that the
// SDP guide describes runs always, since nobody tells the encoder who listens.
#pragma once

#include "appliance/encoder/media_sender.h"
#include "appliance/encoder/sdp.h"

#include <memory>
#include <mutex>

class SharedMulticast {
public:
    // `stream` and `faults` must outlive it.
    SharedMulticast(CodecStream& stream, const FaultSwitch& faults, std::string localAddress,
                    MulticastPlace place)
        : stream_(stream), faults_(faults), localAddress_(std::move(localAddress)), place_(std::move(place)) {
    }

    const MulticastPlace& place() const { return place_; }

    // False when no port can be had.
    bool join();
    void leave();

private:
    CodecStream& stream_;
    const FaultSwitch& faults_;
    const std::string localAddress_;
    const MulticastPlace place_;
    std::mutex mutex_;
    int members_ = 0;
    std::unique_ptr<MediaSender> sender_;
};
