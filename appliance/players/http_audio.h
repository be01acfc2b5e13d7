// The sound of an encoder that sends it over HTTP.
#pragma once

#include "appliance/players/player.h"

#include <string>

namespace player {

// Plays "/vexo-cgi/audio/receive.cgi" of the player's encoder in a thread of its own, heard only while the
// picture is shown. Without a sound card it is received and dropped. Whatever goes wrong with sound is logged
// when the player is verbose, and never disturbs the picture. `options` and `sink` must stay.
void playHttpAudio(const PlayerOptions& options, const StreamSink& sink);

// How sound of that content type is decoded, as for gst-launch, and its caps; empty texts for a type that
// can't be.
struct AudioChain {
    std::string caps;
    std::string elements;
};
AudioChain audioChainOf(const std::string& contentType);

// Where sound goes, as for gst-launch: the machine's sound card, or nowhere when it has none.
extern const char* const soundSink;

// Loads what decoding and playing sound takes. False with a log line when something is missing.
bool loadSoundPlugins();

} // namespace player
