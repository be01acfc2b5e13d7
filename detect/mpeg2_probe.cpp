#include "detect/parameter_query.h"
#include "detect/probes.h"
#include "detect/verdict.h"

namespace detect {

int mpeg2Probe(SourceEntry& entry, int statusId) {
    char firstByte = 0; // enough to know that the stream runs
    Endpoint endpoint;
    const int result = fetch(entry, "/vexo-cgi/mpeg2/video.cgi", {&firstByte, 1}, &endpoint);
    if (result != 1)
        return isTransportFailure(result) ? PROBE_FAILED : PROBE_NOT_THIS_KIND;
    acceptSource(entry, statusId, TYPE_MPEG2, endpoint.mode, "the MPEG-2 stream answered");
    entry.rtspHost = endpoint.host;
    entry.rtspPort = endpoint.port;
    entry.audioAvailable = false;
    publishAudio(statusId, false, 0);
    return PROBE_ACCEPTED;
}

} // namespace detect
