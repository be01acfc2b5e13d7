// The pictures of an RTP stream: GStreamer puts the packets together, libavcodec or GStreamer decodes them.
#pragma once

#include "appliance/players/decoding/av_decoder.h"
#include "appliance/players/decoding/decoder_pipeline.h"
#include "appliance/players/decoding/rtp_decoding.h"
#include "appliance/players/decoding/stream_sink.h"

#include <cstddef>
#include <string>

namespace player {

class RtpPictures {
public:
    // `ordered`: the packets come in order; otherwise they are put in order. Never destroyed: its pipeline runs until
    // the process ends.
    RtpPictures(const RtpChain& chain, const std::string& caps, bool ordered);

    // Starts decoding. `sink` must outlive the object. False with a log line when something is missing.
    bool start(const StreamSink& sink);

    // Takes a packet. False after the decoder failed. For one thread.
    bool feed(const void* packet, std::size_t bytes) { return pipeline_.feed(packet, bytes); }

private:
    void take(GstSample* sample, const StreamSink& sink);
    bool open(GstSample* sample);

    const RtpChain chain_;
    DecoderPipeline pipeline_;
    // Of the pipeline's thread.
    AvDecoder decoder_;
    bool open_ = false;
    bool keyed_ = false; // the first key picture came; those before it decode with errors
};

} // namespace player
