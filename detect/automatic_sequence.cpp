#include "detect/automatic_sequence.h"

#include "detect/detection_state.h"
#include "detect/interruption.h"
#include "detect/parameter_query.h"
#include "detect/probes.h"
#include "detect/trace.h"
#include "detect/verdict.h"

#include <libcommon/network.h>

#include <array>
#include <cstring>
#include <optional>

namespace detect {
namespace {

// The outcome of a step; empty: the next step follows.
using Step = std::optional<Outcome>;

// Handles the result of a probe whose failure ends the sequence.
Step endOfProbe(SourceEntry& entry, int statusId, int result) {
    if (isDetectionInterrupted())
        return Outcome::Interrupted;
    if (result == PROBE_ACCEPTED)
        return Outcome::Verdict;
    if (result == PROBE_FAILED) {
        recordError(entry, statusId, ERROR_NO_STREAM, "a probe failed");
        return Outcome::Verdict;
    }
    return {};
}

// RTSP, for encoders that name MPEG-4 among their image formats.
Step tryRtsp(SourceEntry& entry, int statusId) {
    if (state.apiVersion < 2)
        return {};
    std::array<char, 1024> formats{};
    const int result = queryParameter(entry, "Properties.Image.Format", formats);
    if (isDetectionInterrupted())
        return Outcome::Interrupted;
    if (isTransportFailure(result)) {
        recordError(entry, statusId, ERROR_REQUEST_FAILED, "the image formats query got no answer");
        return Outcome::Verdict;
    }
    toLower(formats.data());
    if (std::strstr(formats.data(), "mpeg4") == nullptr) {
        traceDecision("RTSP is not tried: the image formats don't name mpeg4");
        return {};
    }
    traceDecision("RTSP is tried: the image formats name mpeg4");
    return endOfProbe(entry, statusId, rtspDecision(entry, statusId));
}

Step trySdpAndMpeg2(SourceEntry& entry, int statusId) {
    int result = sdpProbe(entry, statusId);
    if (result == PROBE_NOT_THIS_KIND)
        result = mpeg2Probe(entry, statusId);
    return endOfProbe(entry, statusId, result);
}

} // namespace

Outcome runAutomaticSequence(SourceEntry& entry, int statusId) {
    if (const Step end = tryRtsp(entry, statusId))
        return *end;
    if (const Step end = trySdpAndMpeg2(entry, statusId))
        return *end;
    const int result = mjpegProbe(entry, statusId);
    if (isDetectionInterrupted())
        return Outcome::Interrupted;
    if (result != PROBE_ACCEPTED)
        recordError(entry, statusId, ERROR_NO_STREAM, "no kind of stream was found");
    return Outcome::Verdict;
}

} // namespace detect
