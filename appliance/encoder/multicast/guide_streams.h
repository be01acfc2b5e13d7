// The streams of the SDP guide: an input's MPEG-2 video (payload type 32) and a test tone as MPEG audio layer II
// (payload type 14). Both run from construction to destruction: a multicast sender cannot know whether anyone listens.
#pragma once

#include "appliance/encoder/codecs/codec_stream.h"
#include "appliance/encoder/faults/faults.h"
#include "appliance/encoder/multicast/rtp_pipeline.h"

#include <atomic>
#include <gst/app/gstappsrc.h>
#include <memory>
#include <string>
#include <thread>

class GuideVideo {
public:
    // `stream` and `faults` must outlive it.
    GuideVideo(CodecStream& stream, const FaultSwitch& faults, const std::string& localAddress,
               const MulticastPlace& place);
    ~GuideVideo();
    GuideVideo(const GuideVideo&) = delete;
    GuideVideo& operator=(const GuideVideo&) = delete;

private:
    void run();
    void push(const AccessUnit& unit, std::int64_t time) const;

    CodecStream& stream_;
    const FaultSwitch& faults_;
    const std::unique_ptr<RtpPipeline> pipeline_; // null if it could not be started
    GstAppSrc* source_ = nullptr;                 // of the pipeline
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

// Null if it cannot be started.
std::unique_ptr<RtpPipeline> startGuideAudio(const std::string& localAddress, const MulticastPlace& place);

// Why this machine cannot send the guide's streams, or "".
std::string guideMistake(bool audio);
