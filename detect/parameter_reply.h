// Reading an encoder's reply to a parameter query: GROUP=VALUE and a newline. A pure function over the
// buffer.
#pragma once

#include <span>
#include <string_view>

namespace detect {

// `received` bytes stand in `reply`, 1 to its size. The last one, the newline, becomes the terminating zero.
// When the text begins with `group`, the text after it and one more character (the "=") moves to the start:
// true. Else the reply stays: false. Letters count with their case. The buffer holds a terminated text in
// either case.
bool extractValue(std::span<char> reply, int received, std::string_view group);

} // namespace detect
