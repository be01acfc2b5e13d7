// The sound of an encoder that sends it over HTTP.
#pragma once

#include "appliance/players/decoding/stream_sink.h"
#include "appliance/streams/http_stream.h"

#include <string>

namespace player {

// Plays the sound from that address on its own thread while the picture is shown. Without a sound card the sound is
// received and dropped. A failure is logged when `verbose` is set and never affects the picture. `sink` must outlive
// the process's threads.
void playHttpSound(const streams::HttpSource& source, const StreamSink& sink, bool verbose);

// The decoder for sound of that content type, in the syntax of gst-launch, and the caps to feed; empty texts for an
// unknown type.
struct SoundChain {
    std::string caps;
    std::string elements;
};
SoundChain soundChainOfType(const std::string& contentType);

// The sink for sound in the syntax of gst-launch: the machine's sound card, or none.
extern const char* const soundSink;

// Loads the plugins that all sound needs. False with a log line when one is missing.
bool loadSoundPlugins();

} // namespace player
