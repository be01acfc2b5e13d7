#include "detect/http_stream.h"

#include "detect/probes.h"
#include "detect/verdict.h"

namespace detect {

int askForStream(const SourceEntry& entry, const std::string& path, Endpoint& endpoint) {
    char firstByte = 0;
    const int result = fetch(entry, path, {&firstByte, 1}, &endpoint);
    if (result == 1)
        return PROBE_ACCEPTED;
    return isTransportFailure(result) ? PROBE_FAILED : PROBE_NOT_THIS_KIND;
}

void acceptStream(SourceEntry& entry, int statusId, StreamType type, const Endpoint& endpoint,
                  const std::string& reason) {
    acceptSource(entry, statusId, type, endpoint.mode, reason);
    entry.rtspHost = endpoint.host;
    entry.rtspPort = endpoint.port;
}

} // namespace detect
