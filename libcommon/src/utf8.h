// Cutting and cleaning texts from outside.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace local {

// The greatest length not above `maximum` that cuts `text` at a character's start. Texts that are not UTF-8
// are cut at `maximum`.
std::size_t cutLength(std::string_view text, std::size_t maximum);

// At most `maximum` bytes of valid UTF-8: control characters become blanks, other invalid bytes '?'.
std::string cleanText(std::string_view text, std::size_t maximum);

} // namespace local
