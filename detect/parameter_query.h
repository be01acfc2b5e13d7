// Asking an encoder for one of its parameters over HTTP. Main thread; every request takes at most the
// detection timeout and is cut short by an interruption.
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

// Fetches `path` with the source's credentials. libcommon's result; `endpoint` (or null) tells how it came.
int fetch(const SourceEntry& entry, const std::string& path, std::span<char> buffer, Endpoint* endpoint);

// Whether a result of fetch or queryParameter is a transport failure.
constexpr bool isTransportFailure(int result) {
    return result >= -99 && result <= -1;
}

// Queries a parameter: 1, its value is in the buffer; 0, a reply came that doesn't begin with the name, and
// the buffer keeps it; -1, an empty reply or an interruption; any other negative number, the download's
// result. The viewer's CGI is asked first, an administrator's when that one refuses or reports an error. The
// buffer is the caller's to clear before; it comes back with a terminated text.
int queryParameter(const SourceEntry& entry, const std::string& group, std::span<char> buffer);

} // namespace detect
