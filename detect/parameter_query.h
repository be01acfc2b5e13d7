// Asks an encoder for a parameter over HTTP. Main thread. Each request takes at most the detection timeout; an
// interruption ends it earlier.
#pragma once

#include "sources/source_entry.h"

#include <libcommon/network.h>

#include <span>
#include <string>

namespace detect {

// Where a download found the encoder.
struct Endpoint {
    ConnectMode mode = CONNECT_AUTO;
    unsigned short port = 0;
    std::string host;
};

// Fetches `path` with the source's credentials and returns libcommon's result. `endpoint`, which may be null, is set to
// where the encoder was found.
int fetch(const SourceEntry& entry, const std::string& path, std::span<char> buffer, Endpoint* endpoint);

// Whether a result of fetch or queryParameter is a transport failure.
constexpr bool isTransportFailure(int result) {
    return result >= -99 && result <= -1;
}

// Queries a parameter. 1: its value is in the buffer. 0: the reply does not begin with the name; the buffer holds the
// reply. -1: an empty reply or an interruption. Another negative number: the download's result. The viewer's CGI is
// asked first; when it refuses or reports an error, an administrator's CGI follows. The caller clears the buffer
// before the call; afterwards it holds a terminated text.
int queryParameter(const SourceEntry& entry, const std::string& group, std::span<char> buffer);

} // namespace detect
