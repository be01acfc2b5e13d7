#include "detect/decimal.h"
#include "detect/http_stream.h"
#include "detect/probes.h"
#include "detect/verdict.h"

#include <libcommon/status.h>

#include <string>

namespace detect {
namespace {

// The query that selects the camera, in the form that the encoder's API version understands. None for
// an unknown version.
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
    Endpoint endpoint;
    if (const int result = askForStream(entry, "/vexo-cgi/mjpg/video.cgi", endpoint);
        result != PROBE_ACCEPTED)
        return result;
    acceptStream(entry, statusId, TYPE_MJPEG, endpoint, "the MJPEG stream answered");
    publishAudio(statusId, audioProbe(entry), 0);
    chooseCamera(entry, decimalInt(status(statusId, "APIVersion").c_str()));
    return PROBE_ACCEPTED;
}

} // namespace detect
