// Reads an encoder's reply to a parameter query, GROUP=VALUE and a newline. A pure function over the buffer.
#pragma once

#include <span>
#include <string_view>

namespace detect {

// `reply` holds `received` bytes, 1 to its size. The last byte, the newline, becomes the terminating zero. If the text
// begins with `group` (case-sensitive), the text behind it and one more character, the "=", moves to the start: true.
// Otherwise the reply stays: false. The buffer holds a terminated text in both cases.
bool extractValue(std::span<char> reply, int received, std::string_view group);

} // namespace detect
