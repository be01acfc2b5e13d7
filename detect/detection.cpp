#include "detect/detection.h"

#include "detect/automatic_sequence.h"
#include "detect/detection_state.h"
#include "detect/encoder_properties.h"
#include "detect/interruption.h"
#include "detect/probe_connection.h"
#include "detect/probes.h"
#include "detect/trace.h"
#include "detect/verdict.h"
#include "process/trace_output.h"
#include "recorder/recorded.h"

#include <libcommon/log.h>
#include <libcommon/status.h>

#include <array>
#include <cstddef>
#include <string>

namespace detect {

namespace {

void readTimeout() {
    state.timeoutSeconds = recorded::Parameters(0, true)["Decoder.AutoDetectTimeout"].toInt();
    if (state.timeoutSeconds == 0) {
        logmsg(3, "Decoder.AutoDetectTimeout was 0, forcing to 1.");
        state.timeoutSeconds = 1;
    }
}

void clearStatusValues(int statusId) {
    for (const char* key :
         {"NumberOfVideoSources", "ErrorCode", "VideoSourceType", "ConnectMode", "Audio", "AudioFormat",
          "APIVersion", "Model", "BitRate", "FrameRate", "Resolution", "ImageRotation"})
        status(statusId, key, "");
}

int probeOverHttp(SourceEntry& entry, int statusId) {
    ConnectMode mode = CONNECT_AUTO;
    return rtspOverHttpProbe(entry, statusId, mode);
}

// How a configured kind is probed: with one of the two probes, or in a way of its own.
struct KindProbe {
    StreamType type;
    int (*probe)(SourceEntry& entry, int statusId);
    int (*transportProbe)(SourceEntry& entry, int statusId, int connection, ConnectMode mode);
};

// clang-format off
constexpr std::array kindProbes{
    KindProbe{TYPE_AUTO,           nullptr,       nullptr}, // all probes in turn: runAutomaticSequence()
    KindProbe{TYPE_MJPEG,          mjpegProbe,    nullptr},
    KindProbe{TYPE_MPEG2,          mpeg2Probe,    nullptr},
    KindProbe{TYPE_SDP,            sdpProbe,      nullptr},
    KindProbe{TYPE_RTSP_UNICAST,   nullptr,       unicastProbe},
    KindProbe{TYPE_RTSP_MULTICAST, nullptr,       multicastProbe},
    KindProbe{TYPE_RTSP_TCP,       nullptr,       nullptr}, // no transport is tried: detectConnection()
    KindProbe{TYPE_RTSP_HTTP,      probeOverHttp, nullptr},
};
// clang-format on
static_assert(hasOneRowPerKind(kindProbes), "a row is missing, or in the place of another kind");

// A transport is probed on a connection of its own.
int runProbe(const KindProbe& kind, SourceEntry& entry, int statusId) {
    if (kind.probe != nullptr)
        return kind.probe(entry, statusId);
    ConnectMode mode = CONNECT_AUTO;
    const Descriptor connection = describeOverTcp(entry, mode);
    return connection.isOpen() ? kind.transportProbe(entry, statusId, connection.get(), mode) : PROBE_FAILED;
}

Outcome failConfiguredType(SourceEntry& entry, int statusId) {
    recordError(entry, statusId, ERROR_REQUEST_FAILED, "the encoder does not deliver the configured type");
    return Outcome::Verdict;
}

// TYPE_RTSP_TCP is accepted as soon as the stream is described; no transport is tried.
Outcome detectConnection(SourceEntry& entry, int statusId) {
    ConnectMode mode = CONNECT_AUTO;
    const bool described = describeOverTcp(entry, mode).isOpen();
    if (isDetectionInterrupted())
        return Outcome::Interrupted;
    if (!described)
        return failConfiguredType(entry, statusId);
    acceptRtsp(entry, statusId, TYPE_RTSP_TCP, mode, "the stream is described, and this type is configured");
    return Outcome::Verdict;
}

Outcome detectConfiguredType(SourceEntry& entry, int statusId) {
    if (entry.configuredType == TYPE_RTSP_TCP)
        return detectConnection(entry, statusId);
    const auto type = static_cast<std::size_t>(entry.configuredType);
    const int result = runProbe(kindProbes[type], entry, statusId);
    if (isDetectionInterrupted())
        return Outcome::Interrupted;
    return result == PROBE_ACCEPTED ? Outcome::Verdict : failConfiguredType(entry, statusId);
}

Outcome refuseType(SourceEntry& entry, int statusId) {
    if (isDetectionInterrupted())
        return Outcome::Interrupted;
    recordError(entry, statusId, ERROR_NO_STREAM, "there is no such type");
    return Outcome::NoSuchType;
}

Outcome detectStream(SourceEntry& entry, int statusId) {
    if (entry.configuredType < TYPE_AUTO || entry.configuredType > TYPE_RTSP_HTTP)
        return refuseType(entry, statusId);
    return entry.configuredType == TYPE_AUTO ? runAutomaticSequence(entry, statusId)
                                             : detectConfiguredType(entry, statusId);
}

// Number of inputs and rotation, for encoders that know these parameters. False: interrupted.
bool askDetails(SourceEntry& entry, int statusId) {
    if (state.apiVersion <= 1)
        return true;
    numberOfSourcesProbe(entry, statusId);
    if (isDetectionInterrupted())
        return false;
    rotationProbe(entry, statusId);
    return !isDetectionInterrupted();
}

// The whole detection, step by step.
Outcome runDetection(SourceEntry& entry, int statusId) {
    entry.audioAvailable = false;
    clearStatusValues(statusId);
    state.apiVersion = apiVersionProbe(entry);
    if (isDetectionInterrupted())
        return Outcome::Interrupted;
    if (state.apiVersion == -4011) {
        recordError(entry, statusId, ERROR_UNREACHABLE, "the encoder can't be reached");
        return Outcome::Verdict;
    }
    status(statusId, "APIVersion", state.apiVersion);
    printTrace("Assuming API: %d\n", state.apiVersion);
    traceDecision("API version " + std::to_string(state.apiVersion) +
                  (state.apiVersion > 1 ? ": inputs and rotation can be asked for"
                                        : ": too old to be asked for inputs, rotation and image formats"));
    const bool modelKnown = modelProbe(entry, statusId);
    if (isDetectionInterrupted())
        return Outcome::Interrupted;
    if (!modelKnown)
        return Outcome::Verdict;
    if (!askDetails(entry, statusId))
        return Outcome::Interrupted;
    return detectStream(entry, statusId);
}

std::string outcomeText(const SourceEntry& entry, Outcome outcome) {
    if (outcome == Outcome::Interrupted)
        return "interrupted";
    if (!entry.detectedOK)
        return "error " + std::to_string(entry.errorCode);
    return "accepted: kind " + std::to_string(entry.detectedType) + " (" + typeText(entry.detectedType) +
           "), connect mode " + std::to_string(entry.connectMode) + " (" +
           connectModeText(entry.connectMode) + "), " + quoted(entry.rtspHost) + " port " +
           std::to_string(entry.rtspPort);
}

} // namespace
} // namespace detect

bool detectSource(SourceEntry& entry, int statusId) {
    using namespace detect;
    const InterruptionSignal signal;
    readTimeout();
    beginTrace(entry);
    const Outcome outcome = runDetection(entry, statusId);
    status(statusId, traceKey, finishTrace(outcomeText(entry, outcome)).c_str());
    return outcome == Outcome::Verdict;
}
