#include "detect/parameter_query.h"
#include "detect/probes.h"
#include "detect/rtsp_request.h"
#include "detect/verdict.h"

#include <libcommon/interrupt.h>

namespace detect {

int rtspOverHttpProbe(SourceEntry& entry, int statusId, ConnectMode& mode) {
    char firstByte = 0;
    Endpoint endpoint;
    const int result = fetch(entry, mediaPath(entry.sourceNumber), {&firstByte, 1}, &endpoint);
    if (isInterrupted())
        return PROBE_FAILED;
    if (result != 1)
        return isTransportFailure(result) ? PROBE_FAILED : PROBE_NOT_THIS_KIND;
    // Neither "Audio" nor "AudioFormat" is published for this kind.
    acceptSource(entry, statusId, TYPE_RTSP_HTTP, endpoint.mode, "the stream's RTSP path answered over HTTP");
    entry.rtspHost = endpoint.host;
    entry.rtspPort = endpoint.port;
    mode = endpoint.mode;
    return PROBE_ACCEPTED;
}

} // namespace detect
