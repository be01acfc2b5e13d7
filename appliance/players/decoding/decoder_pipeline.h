// A GStreamer pipeline that decodes a stream: bytes or packets in, pictures out.
#pragma once

#include "appliance/players/decoding/stream_sink.h"

#include <cstddef>
#include <functional>
#include <gst/gst.h>
#include <string>

namespace player {

// What one feed() call passes in, and what happens when decoding is too slow.
enum class Feed {
    pictures, // one whole picture; the oldest queued one is dropped
    packets,  // one packet; the oldest queued one is dropped
    bytes,    // a piece of a byte stream; feed() blocks
};

// Takes a sample; the caller keeps its reference.
using SampleTaker = std::function<void(GstSample*)>;

class DecoderPipeline {
public:
    // `description` is the part between source and sink in the syntax of gst-launch ("jpegdec"), `caps` describes
    // what is fed. An element named "decoder" receives nothing before the first key picture, because earlier pictures
    // decode with errors.
    DecoderPipeline(std::string description, std::string caps, Feed feed);
    // Never destroyed: the pipeline runs until the process ends.

    // Starts the pipeline. `sink` must outlive it. False with a log line when an element is missing.
    bool start(const StreamSink& sink);

    // The same, but what leaves the pipeline goes to `take`, on the pipeline's thread.
    bool start(const StreamSink& sink, SampleTaker take);

    // Passes bytes in. False after the pipeline failed. For one thread.
    bool feed(const void* bytes, std::size_t count);

private:
    const std::string description_;
    const std::string caps_;
    const Feed feed_;
    GstElement* pipeline_ = nullptr;
    GstElement* source_ = nullptr;
};

// Configures an appsrc for that kind of feed; pictures and packets get their arrival time as timestamp.
void configureFeed(GstElement* source, Feed feed);

// The appsink at the end of a player's pipeline: it keeps at most one picture and doesn't wait for the clock.
extern const char* const pictureSink;

// Passes the output of the pipeline's element "pictures" to `take`, and an error to `sink` as the end of the stream.
// `sink` must outlive the pipeline.
void deliver(GstElement* pipeline, const StreamSink& sink, SampleTaker take);

// Creates a pipeline from a description in the syntax of gst-launch. Null with a log line on failure.
GstElement* makePipeline(const std::string& description);

} // namespace player
