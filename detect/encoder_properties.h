// What an encoder tells about itself before its streams are tried. Each question is published under
// `statusId`. Main thread; each blocks for its requests.
#pragma once

#include "sources/source_entry.h"

namespace detect {

// -4011 when the encoder can't be reached; 1 when it does not know the parameter; else what it says, 2 by
// default.
int apiVersionProbe(const SourceEntry& entry);

// "Model". False: interrupted, or an error was recorded (11 or 24).
bool modelProbe(SourceEntry& entry, int statusId);

// "NumberOfVideoSources", and the entry's source number brought into range. False: no answer, nothing
// written.
bool numberOfSourcesProbe(SourceEntry& entry, int statusId);

// "ImageRotation". False: interrupted or no answer, 0 is written.
bool rotationProbe(const SourceEntry& entry, int statusId);

} // namespace detect
