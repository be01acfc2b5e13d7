// A GStreamer pipeline that is fed with a stream and gives decoded pictures.
#pragma once

#include "appliance/players/player.h"

#include <cstddef>
#include <string>

namespace player {

// What feed() hands in, and what becomes of it when decoding is late.
enum class Feed {
    pictures, // each is one whole picture; the oldest that waits is dropped
    packets,  // each is one packet; the oldest that waits is dropped
    bytes,    // a piece of a stream; feed() waits
};

class DecoderPipeline {
public:
    // `description` is what stands between source and sink, as for gst-launch: "jpegdec"; `caps` what is fed.
    // An element named "decoder" gets nothing before the stream's first key picture: what comes before can't
    // be decoded well.
    DecoderPipeline(std::string description, std::string caps, Feed feed);
    // Not destroyed: the process ends first.

    // Starts it. False with a log line when an element is missing. `sink` must stay.
    bool start(const StreamSink& sink);

    // Hands bytes in. False after the pipeline failed. One thread.
    bool feed(const void* bytes, std::size_t count);

private:
    const std::string description_;
    const std::string caps_;
    const Feed feed_;
    GstElement* pipeline_ = nullptr;
    GstElement* source_ = nullptr;
};

// Makes an appsrc take what that kind of feed is, stamped with the time of its arrival.
void configureFeed(GstElement* source, Feed feed);

// The appsink that players end in: one picture is kept at most, and none waits for a clock.
extern const char* const pictureSink;

// Delivers what comes out of the pipeline's element "pictures" to `sink`, and its errors as the stream's end.
// `sink` must stay as long as the pipeline.
void deliver(GstElement* pipeline, const StreamSink& sink);

// Makes a pipeline of a description. Null with a log line when it can't be made.
GstElement* makePipeline(const std::string& description);

} // namespace player
