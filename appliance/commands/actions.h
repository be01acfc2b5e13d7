// Events that only decoderctl sends to the decoder.
//
// Each command returns the sentence to print, which says what the decoder will do. It throws Refused when it
// was refused or failed.
#pragma once

#include <string>

// Says when the text had to be cut, and why the alarm may not be shown.
std::string raiseAlarm(int index, const std::string& name, const std::string& text);

std::string lockDecoder();
std::string endLock();
std::string flushDetections();

// The volume of the sound, in percent; in force within a second.
std::string setSoundVolume(int percent);
