#include "detect/decimal.h"
#include "detect/parameter_query.h"
#include "detect/probes.h"
#include "detect/verdict.h"

#include <libcommon/status.h>

#include <string>

namespace detect {
namespace {

// The query that selects the camera, as the encoder's API version wants it. None where that is unknown.
void chooseCamera(SourceEntry& entry, int apiVersion) {
    if (apiVersion <= 0)
        return;
    if (entry.sourceNumber != 0)
        entry.streamOptions = "camera=" + std::to_string(entry.sourceNumber);
    else
        entry.streamOptions = apiVersion == 1 ? "quad=1" : "camera=quad";
}

} // namespace

int mjpegProbe(SourceEntry& entry, int statusId) {
    char firstByte = 0; // enough to know that the stream runs
    Endpoint endpoint;
    const int result = fetch(entry, "/vexo-cgi/mjpg/video.cgi", {&firstByte, 1}, &endpoint);
    if (result != 1)
        return isTransportFailure(result) ? PROBE_FAILED : PROBE_NOT_THIS_KIND;
    acceptSource(entry, statusId, TYPE_MJPEG, endpoint.mode, "the MJPEG stream answered");
    entry.rtspHost = endpoint.host;
    entry.rtspPort = endpoint.port;
    publishAudio(statusId, audioProbe(entry), 0);
    chooseCamera(entry, decimalInt(status(statusId, "APIVersion").c_str()));
    return PROBE_ACCEPTED;
}

} // namespace detect
