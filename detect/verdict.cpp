#include "detect/verdict.h"

#include "detect/trace.h"

#include <libcommon/status.h>

namespace detect {
namespace {

template<int Size>
const char* textAt(const char* const (&table)[Size], int index) {
    return index >= 0 && index < Size ? table[index] : table[Size - 1];
}

} // namespace

const char* typeText(int type) {
    return textAt(videoSourceTypeString, type);
}

const char* connectModeText(int mode) {
    return textAt(connectModeString, mode);
}

void acceptSource(SourceEntry& entry, int statusId, int type, int connectMode, const std::string& reason) {
    entry.detectedOK = true;
    entry.errorCode = ERROR_NONE;
    status(statusId, "ErrorCode", ERROR_NONE);
    entry.detectedType = type;
    status(statusId, "VideoSourceType", typeText(type));
    entry.connectMode = connectMode;
    status(statusId, "ConnectMode", connectModeText(connectMode));
    traceDecision("kind " + std::to_string(type) + " (" + typeText(type) + "), connect mode " +
                  std::to_string(connectMode) + " (" + connectModeText(connectMode) + "): " + reason);
}

void publishAudio(int statusId, bool available, int format) {
    status(statusId, "Audio", available ? "yes" : "no");
    status(statusId, "AudioFormat", textAt(audioSourceTypeString, format));
}

void recordError(SourceEntry& entry, int statusId, int code, const std::string& reason) {
    entry.detectedOK = false;
    entry.errorCode = code;
    status(statusId, "ErrorCode", code);
    traceDecision("error " + std::to_string(code) + ": " + reason);
}

} // namespace detect
