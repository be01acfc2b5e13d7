// The pictures of an RTP stream.
//
// Packets may come before the decoder is loaded: they wait for it. Nothing else waits: a complete picture is decoded at
// once.
#pragma once

#include "appliance/players/decoding/module.h"
#include "appliance/players/decoding/stream_sink.h"
#include "appliance/streams/stream_description.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace player {

// Whether pictures in that encoding ("H264") can be decoded.
bool decodesVideo(const std::string& encodingName);

class PacketPictures {
public:
    using MakeDecoder = std::function<std::unique_ptr<UnitDecoder>()>;

    // `sink` must outlive the object. `make` loads the decoder, on the thread that decodes.
    explicit PacketPictures(const StreamSink& sink, MakeDecoder make = makeUnitDecoder);
    PacketPictures(const PacketPictures&) = delete;
    PacketPictures& operator=(const PacketPictures&) = delete;
    // Never destroyed: its thread runs until the process ends.

    // Loads libavcodec, before it is known what the stream has: it almost always needs it. Any thread, before begin().
    void preload();

    // Starts to decode a stream with that description, on a thread of its own. `ordered`: the packets come in order;
    // otherwise they are put in order. When the decoder can't be loaded or fails, the sink is told that the stream ended.
    // Called once.
    void begin(const streams::DescribedStream& stream, bool ordered);

    // Takes a packet; never blocks. When decoding is far too slow, the oldest packets are dropped. `shown` false: its
    // picture is decoded and not shown, because it is older than the stream's present. False after the decoder
    // failed. Any thread, after begin().
    bool feed(std::string_view packet, bool shown = true);

private:
    struct State;
    State& state_;
};

} // namespace player
