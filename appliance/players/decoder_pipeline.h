// A GStreamer pipeline that is fed with bytes and gives decoded pictures.
#pragma once

#include "appliance/players/player.h"

#include <cstddef>
#include <string>

namespace player {

class DecoderPipeline {
public:
    // `description` is what stands between source and sink, as for gst-launch: "jpegdec"; `caps` what the
    // bytes are. `wholePictures`: each feed() is one picture, and pictures are dropped rather than queued
    // when decoding is late; else feed() waits instead.
    DecoderPipeline(const std::string& description, const std::string& caps, bool wholePictures);
    // Not destroyed: the process ends first.

    // Starts it. False with a log line when an element is missing. `sink` must stay.
    bool start(const StreamSink& sink);

    // Hands bytes in. False after the pipeline failed. One thread.
    bool feed(const void* bytes, std::size_t count);

private:
    const std::string description_;
    const std::string caps_;
    const bool wholePictures_;
    GstElement* pipeline_ = nullptr;
    GstElement* source_ = nullptr;
};

// The appsink that players end in: one picture is kept at most, and none waits for a clock.
extern const char* const pictureSink;

// Delivers what comes out of the pipeline's element "pictures" to `sink`, and its errors as the stream's end.
// `sink` must stay as long as the pipeline.
void deliver(GstElement* pipeline, const StreamSink& sink);

// Makes a pipeline of a description. Null with a log line when it can't be made.
GstElement* makePipeline(const std::string& description);

} // namespace player
