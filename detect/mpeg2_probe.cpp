#include "detect/http_stream.h"
#include "detect/probes.h"
#include "detect/verdict.h"

namespace detect {

int mpeg2Probe(SourceEntry& entry, int statusId) {
    Endpoint endpoint;
    if (const int result = askForStream(entry, "/vexo-cgi/mpeg2/video.cgi", endpoint);
        result != PROBE_ACCEPTED)
        return result;
    acceptStream(entry, statusId, TYPE_MPEG2, endpoint, "the MPEG-2 stream answered");
    entry.audioAvailable = false;
    publishAudio(statusId, false, 0);
    return PROBE_ACCEPTED;
}

} // namespace detect
