// A channel as a source of media for the RTSP server library: one pipeline and one encoding for all who watch
// the channel over RTSP, whatever their transports.
//
// The pipeline exists while at least one connection has joined. The library would build and end it by itself, but
// a client that comes while the last one leaves would find it half gone.
#pragma once

#include "appliance/encoder/codec_stream.h"
#include "appliance/encoder/faults.h"
#include "appliance/encoder/options.h"
#include "appliance/encoder/sdp.h"

#include <functional>
#include <gst/rtsp-server/rtsp-server.h>
#include <mutex>
#include <string>

class RtspChannel {
public:
    // `options`, `stream`, `faults` and `threads` must outlive it. `place` is where its multicast goes;
    // `cutClients` is called on any thread when a fault wants that.
    RtspChannel(const Options& options, std::string path, CodecStream& stream, const FaultSwitch& faults,
                const MulticastPlace& place, std::function<void()> cutClients, GstRTSPThreadPool* threads);
    ~RtspChannel();
    RtspChannel(const RtspChannel&) = delete;
    RtspChannel& operator=(const RtspChannel&) = delete;

    // To be mounted at the path; the channel's.
    GstRTSPMediaFactory* factory() const { return factory_; }
    const std::string& path() const { return path_; }
    const MulticastPlace& place() const { return place_; }

    // Any thread. False, without having joined, when there is no picture; that may take three seconds.
    bool join();
    void leave();

    // As DESCRIBE gives it; only between join() and leave().
    std::string description(const std::string& localAddress);

    // For a client that begins to play: makes the next picture a key picture.
    void welcomeNewcomer() const { stream_.welcomeNewcomer(); }

private:
    static void onConfigure(GstRTSPMediaFactory* factory, GstRTSPMedia* media, gpointer channel);

    const Options& options_;
    const std::string path_;
    CodecStream& stream_;
    const FaultSwitch& faults_;
    const MulticastPlace place_;
    const std::function<void()> cutClients_;
    GstRTSPThreadPool* const threads_;
    GstRTSPMediaFactory* const factory_;

    std::mutex mutex_; // guards the two below, and is held while the pipeline is built or ended
    int members_ = 0;
    GstRTSPMedia* media_ = nullptr;
};
