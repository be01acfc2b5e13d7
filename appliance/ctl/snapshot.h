// Saving the monitor's picture.
#pragma once

#include <string>

// Writes the composed picture (frame, texts, label, blanking) as PNG to `file`, "-" for standard output. `size`
// (WIDTHxHEIGHT) is the size of its screen; "": that of the monitor. Returns what was saved; throws Refused when no
// decoder runs, the file can't be written or the size is not allowed.
std::string saveSnapshot(const std::string& file, const std::string& size);
