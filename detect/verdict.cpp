#include "detect/verdict.h"

#include "detect/trace.h"

#include <libcommon/status.h>

namespace detect {
void acceptSource(SourceEntry& entry, int statusId, StreamType type, ConnectMode mode,
                  const std::string& reason) {
    entry.detectedOK = true;
    entry.errorCode = ERROR_NONE;
    status(statusId, "ErrorCode", ERROR_NONE);
    entry.detectedType = type;
    status(statusId, "VideoSourceType", typeText(type));
    entry.connectMode = mode;
    status(statusId, "ConnectMode", connectModeText(mode));
    traceDecision("kind " + std::to_string(type) + " (" + typeText(type) + "), connect mode " +
                  std::to_string(mode) + " (" + connectModeText(mode) + "): " + reason);
}

void publishAudio(int statusId, bool available, int format) {
    status(statusId, "Audio", available ? "yes" : "no");
    status(statusId, "AudioFormat", tableText(audioSourceTypeString, format));
}

void recordError(SourceEntry& entry, int statusId, int code, const std::string& reason) {
    entry.detectedOK = false;
    entry.errorCode = code;
    status(statusId, "ErrorCode", code);
    traceDecision("error " + std::to_string(code) + ": " + reason);
}

} // namespace detect
