// The properties of an encoder, asked before its streams are tried and published under `statusId`. Main thread; each
// probe blocks for its requests.
#pragma once

#include "sources/source_entry.h"

namespace detect {

// The HTTP API version: -4011 when the encoder can't be reached, 1 when it does not know the parameter, otherwise its
// answer, or 2 when the answer can't be used.
int apiVersionProbe(const SourceEntry& entry);

// "Model". False: interrupted, or an error was recorded (11 or 24).
bool modelProbe(SourceEntry& entry, int statusId);

// "NumberOfVideoSources"; also limits the entry's source number. False: no answer, nothing is written.
bool numberOfSourcesProbe(SourceEntry& entry, int statusId);

// "ImageRotation". False: interrupted or no answer; 0 is written.
bool rotationProbe(const SourceEntry& entry, int statusId);

} // namespace detect
