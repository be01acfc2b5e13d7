// A detection for unit tests, linked in place of detect. The test says how it ends.
// Call fake::resetDetect() after fake::reset().
//
// Recorded in fake::calls as detectSource(3) when entry and status agree on the source, else
// detectSource(3,status 4).
#pragma once

#include "detect/detection.h"
#include "tests/fakes/fake_libcommon.h"

#include <functional>

namespace fake {

void resetDetect();

// Runs after the call was recorded; default: the encoder is accepted (detectedOK, true).
extern std::function<bool(SourceEntry& entry, int statusId)> onDetectSource;

} // namespace fake
