// Saving the monitor's picture.
#pragma once

#include <string>

// Writes the composed picture (frame, texts, blanking) as PNG to `file`, "-" for standard output. Returns
// what was saved; throws Refused when no decoder runs or the file can't be written.
std::string saveSnapshot(const std::string& file);
