// Sound over HTTP: a test tone as G.711 mu-law, 8000 samples a second, one channel (audio/basic).
#pragma once

#include "appliance/encoder/http/http_session.h"

#include <cstdint>
#include <string>

void streamAudio(HttpSession& session);

// `count` samples of the tone, starting with sample number `first`: half a second of sound, half a second of silence,
// and so on.
std::string toneSamples(std::uint64_t first, std::size_t count);

// One 16-bit sample as mu-law.
std::uint8_t muLaw(int sample);
