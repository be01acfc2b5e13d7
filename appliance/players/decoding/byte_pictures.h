// The pictures of an MPEG-2 stream that arrives as bytes: a transport, program or elementary stream.
//
// Bytes may come before the decoder is loaded: they wait for it.
#pragma once

#include "appliance/players/decoding/module.h"
#include "appliance/players/decoding/stream_sink.h"

#include <cstddef>
#include <functional>
#include <memory>

namespace player {

class BytePictures {
public:
    using MakeDecoder = std::function<std::unique_ptr<UnitDecoder>()>;

    // Starts a thread that loads the decoder with `make` and decodes. When that fails, the sink is told that the stream
    // ended. `sink` must outlive the object.
    explicit BytePictures(const StreamSink& sink, MakeDecoder make = makeUnitDecoder);
    BytePictures(const BytePictures&) = delete;
    BytePictures& operator=(const BytePictures&) = delete;
    // Never destroyed: its thread runs until the process ends.

    // Takes bytes; the first ones tell the container. Blocks while more than a megabyte waits to be decoded. `shown` false:
    // the pictures are decoded and not shown, because they are older than the stream's present. False after the decoder
    // failed. For one thread.
    bool feed(const char* bytes, std::size_t count, bool shown = true);

    // Waits until all bytes are decoded, at most ten seconds. Called before the end of the stream is reported, so that its
    // last picture counts.
    void finish();

private:
    struct State;
    State& state_;
};

} // namespace player
