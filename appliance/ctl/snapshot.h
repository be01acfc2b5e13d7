// Saving what the monitor shows.
#pragma once

#include <string>

// Writes the composed picture (frame, texts, blanking) as a PNG to `file`, "-" for standard output. Tells
// what was saved; throws Refused when there is no screen or the file can't be written.
std::string saveSnapshot(const std::string& file);
