// How a detection publishes what it found. Main thread.
#pragma once

#include "sources/source_entry.h"

#include <string>

namespace detect {

// Values of "ErrorCode".
enum DetectionError : int {
    ERROR_NONE = 0,
    ERROR_REQUEST_FAILED = 11, // no answer on the way, or not the kind that is configured
    ERROR_NO_STREAM = 20,
    ERROR_UNAUTHORISED = 24,
    ERROR_UNREACHABLE = 32,
};

// The probe accepts the encoder: the entry is usable, and error code, type and connect mode are published.
void acceptSource(SourceEntry& entry, int statusId, int type, int connectMode, const std::string& reason);

// "Audio" and "AudioFormat"; an index into audioSourceTypeString.
void publishAudio(int statusId, bool available, int format);

// The error recorder: the entry is not usable, and why.
void recordError(SourceEntry& entry, int statusId, int code, const std::string& reason);

// The name of a type or connect mode; the table's last text for what is not in it.
const char* typeText(int type);
const char* connectModeText(int mode);

} // namespace detect
