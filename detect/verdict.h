// How a detection publishes its result. Main thread.
#pragma once

#include "sources/source_entry.h"

#include <libcommon/network.h>

#include <string>

namespace detect {

// Values of "ErrorCode".
enum DetectionError : int {
    ERROR_NONE = 0,
    ERROR_REQUEST_FAILED = 11, // a request failed, or the encoder does not deliver the configured kind
    ERROR_NO_STREAM = 20,
    ERROR_UNAUTHORISED = 24,
    ERROR_UNREACHABLE = 32,
};

// The probe accepts the encoder: the entry is usable, and error code, type and connect mode are published.
void acceptSource(SourceEntry& entry, int statusId, StreamType type, ConnectMode mode,
                  const std::string& reason);

// "Audio" and "AudioFormat"; an index into audioSourceTypeString.
void publishAudio(int statusId, bool available, int format);

// Marks the entry as not usable and publishes the error code. The reason goes into the trace.
void recordError(SourceEntry& entry, int statusId, int code, const std::string& reason);

} // namespace detect
