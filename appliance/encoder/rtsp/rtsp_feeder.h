// Feeds a channel's pictures into its RTSP pipeline, on a separate thread.
//
// It pushes one picture before the first PLAY, because the pipeline needs one for the stream's description. That
// picture stays in the pipeline and is old by the time of PLAY. No client gets it: the sinks drop all packets that
// are older than the first picture after PLAY.
#pragma once

#include "appliance/encoder/codecs/gated_reader.h"
#include "appliance/encoder/faults/faults.h"

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
    // The name of the GStreamer event that follows each picture.
    static constexpr const char* pictureEndName = "encoder-picture-end";

    // `source` is an appsrc. It reports an error if the first picture takes more than three seconds. The others must
    // outlive the feeder. `cutClients` is called when the fault "close" cuts the stream off.
    RtspFeeder(CodecStream& stream, const FaultSwitch& faults, const std::function<void()>& cutClients,
               GstElement* source);
    ~RtspFeeder();
    RtspFeeder(const RtspFeeder&) = delete;
    RtspFeeder& operator=(const RtspFeeder&) = delete;

    // Any thread.
    void play(bool playing);
    void stop();

    // Whether a sink may send a packet of RTP or RTCP with these first bytes. Any thread.
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
    std::atomic<bool> holding_ = false; // a fault holds all packets back

    std::mutex mutex_; // guards the two below
    std::condition_variable changed_;
    bool playing_ = false;
    bool stopping_ = false;
    std::mutex joining_; // for stop(), which two threads may call
    std::thread thread_;
};
