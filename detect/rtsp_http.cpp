#include "detect/http_stream.h"
#include "detect/probes.h"
#include "detect/rtsp_request.h"
#include "recorder/recorded.h"

namespace detect {

int rtspOverHttpProbe(SourceEntry& entry, int statusId, ConnectMode& mode) {
    Endpoint endpoint;
    const int result = askForStream(entry, mediaPath(entry.sourceNumber), endpoint);
    if (recorded::isInterrupted())
        return PROBE_FAILED;
    if (result != PROBE_ACCEPTED)
        return result;
    // Neither "Audio" nor "AudioFormat" is published for this kind.
    acceptStream(entry, statusId, TYPE_RTSP_HTTP, endpoint, "the stream's RTSP path answered over HTTP");
    mode = endpoint.mode;
    return PROBE_ACCEPTED;
}

} // namespace detect
