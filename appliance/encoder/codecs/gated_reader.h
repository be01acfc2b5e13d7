// A codec stream as one consumer gets it, with the stream faults applied: stall, freeze and close. HTTP, RTSP and the
// SDP guide's multicast all read through it.
#pragma once

#include "appliance/encoder/codecs/codec_stream.h"
#include "appliance/encoder/faults/frame_gate.h"

#include <optional>

// For one thread.
class GatedReader {
public:
    struct Turn {
        FrameGate::Step step; // what to do now
        AccessUnitPtr unit;   // to be sent for Send and Repeat
        std::int64_t time;    // its time; for Repeat, the time of the picture that it replaces
    };

    // `stream` and `faults` must outlive it.
    GatedReader(CodecStream& stream, const FaultSwitch& faults) : reader_(stream), faults_(faults) {}

    // One turn for each picture of the stream. Nothing when none came within `timeout`.
    std::optional<Turn> next(std::chrono::milliseconds timeout);

    // Counts pictures from 0 again.
    void restart() { gate_ = {}; }

private:
    CodecReader reader_;
    const FaultSwitch& faults_;
    FrameGate gate_;
    AccessUnitPtr lastKey_; // the last key picture sent: repeating another one would show decoding errors
};
