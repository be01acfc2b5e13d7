// Reads the recorder's file, also a damaged or a cut one, and also while a supervisor writes it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace recorder {

// In place of lines that are missing.
inline constexpr std::string_view gapLine = "gap";

// Whether the bytes begin like a file of the recorder, of whatever version.
bool looksLikeRing(std::string_view bytes);

// The lines of a file, oldest first, with gapLine wherever some are missing. Throws std::runtime_error with a sentence when
// it is no such file, or one of another version.
std::vector<std::string> readRing(std::string_view bytes);

} // namespace recorder
