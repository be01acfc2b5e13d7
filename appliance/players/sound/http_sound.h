// The sound of an encoder that sends it over HTTP.
#pragma once

#include "appliance/players/decoding/stream_sink.h"
#include "appliance/players/sound/sound_output.h"
#include "appliance/streams/http_stream.h"

#include <string>

namespace player {

// Plays the sound from that address while the picture is shown and sound is enabled; blocks meanwhile. A failure is
// logged when `verbose` is set and never affects the picture. `sink` and `output` must outlive the process's threads.
void playHttpSound(const streams::HttpSource& source, const StreamSink& sink, SoundOutput& output,
                   bool verbose);

// The decoder for sound of that content type, in the syntax of gst-launch, and the caps to feed; empty texts for an
// unknown type.
struct SoundChain {
    std::string caps;
    std::string elements;
};
SoundChain soundChainOfType(const std::string& contentType);

} // namespace player
