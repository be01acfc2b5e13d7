// A channel's pictures on their way into the pipeline that packs them for RTSP, on a thread of their own.
//
// Before anybody plays, one picture is pushed, so that the pipeline learns what the description says. It waits
// there until the first PLAY and is old by then, so nobody gets it: sinks drop what is older than the first
// picture of the time that somebody watches.
#pragma once

#include "appliance/encoder/codec_stream.h"
#include "appliance/encoder/faults.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <gst/app/gstappsrc.h>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>

class RtspFeeder {
public:
    // The name of the event that follows each picture.
    static constexpr const char* pictureEndName = "encoder-picture-end";

    // `source` is an appsrc; it reports an error when there is no picture for three seconds. The others must
    // outlive the feeder; `cutClients` is called when a fault wants that.
    RtspFeeder(CodecStream& stream, const FaultSwitch& faults, const std::function<void()>& cutClients,
               GstElement* source);
    ~RtspFeeder();
    RtspFeeder(const RtspFeeder&) = delete;
    RtspFeeder& operator=(const RtspFeeder&) = delete;

    // Any thread.
    void play(bool playing);
    void stop();

    // Whether a sink is to send a packet of RTP or RTCP, given its first bytes. Any thread.
    bool wants(std::string_view packet, GstClockTime time) const;

private:
    void run();
    bool pushFirst();
    bool awaitPlay();
    bool goesOn();
    bool stopped();
    void sendWhilePlaying();
    void push(const AccessUnit& unit, std::optional<std::int64_t> time);
    GstClockTime runningTimeAt(std::int64_t time) const;

    CodecStream& stream_;
    const FaultSwitch& faults_;
    const std::function<void()>& cutClients_;
    GstAppSrc* const source_;
    std::atomic<GstClockTime> liveFrom_ = GST_CLOCK_TIME_NONE;
    std::atomic<bool> holding_ = false; // a fault keeps everything back

    std::mutex mutex_; // guards the two below
    std::condition_variable changed_;
    bool playing_ = false;
    bool stopping_ = false;
    std::mutex joining_; // two threads may stop it
    std::thread thread_;
};
