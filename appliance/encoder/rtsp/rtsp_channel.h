// A channel as a source of media for the RTSP server library. One pipeline serves all clients that play the channel,
// whichever transports they use.
//
// The pipeline exists while at least one connection has joined. We build and end it, not the library: with the
// library, a client that comes while the last one leaves can get a pipeline that is half gone.
#pragma once

#include "appliance/encoder/codecs/codec_stream.h"
#include "appliance/encoder/device/encoder_options.h"
#include "appliance/encoder/faults/faults.h"
#include "appliance/encoder/multicast/multicast_place.h"

#include <functional>
#include <gst/rtsp-server/rtsp-server.h>
#include <mutex>
#include <string>

class RtspChannel {
public:
    // `options`, `stream`, `faults` and `threads` must outlive it. `place` is where its multicast goes. `cutClients`
    // is called, on any thread, when the fault "close" cuts the stream off.
    RtspChannel(const Options& options, std::string path, CodecStream& stream, const FaultSwitch& faults,
                const MulticastPlace& place, std::function<void()> cutClients, GstRTSPThreadPool* threads);
    ~RtspChannel();
    RtspChannel(const RtspChannel&) = delete;
    RtspChannel& operator=(const RtspChannel&) = delete;

    // The caller mounts it at path(). The channel owns it.
    GstRTSPMediaFactory* factory() const { return factory_; }
    const std::string& path() const { return path_; }
    const MulticastPlace& place() const { return place_; }

    // False, without joining, if there is no picture; that takes up to three seconds. Any thread.
    bool join();
    void leave();

    // The SDP text of the stream. Only between join() and leave().
    std::string description(const std::string& localAddress);

    // The SDP of a stream of this encoder. The caller frees it; null on failure.
    static GstSDPMessage* describe(GstRTSPMedia* media, const Options& options,
                                   const std::string& localAddress);

    // Makes the next picture a key picture, for a client that begins to play.
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

    std::mutex mutex_; // guards the two below; held while the pipeline is built or ended
    int members_ = 0;
    GstRTSPMedia* media_ = nullptr;
};
