// A stream that an encoder sends over HTTP: whether it answers, and how it is accepted. Main thread.
#pragma once

#include "detect/parameter_query.h"
#include "sources/source_entry.h"

#include <string>

namespace detect {

// Fetches the first byte of the stream at `path`, which is enough to know that it runs. A ProbeResult: accepted when
// the byte came, failed after a transport failure. `endpoint` says where the stream was found.
int askForStream(const SourceEntry& entry, const std::string& path, Endpoint& endpoint);

// Accepts the source: the player uses the host and port where the stream was found.
void acceptStream(SourceEntry& entry, int statusId, StreamType type, const Endpoint& endpoint,
                  const std::string& reason);

} // namespace detect
