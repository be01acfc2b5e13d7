// Where a tile process has its connection to the wall.
#pragma once

namespace screen {

inline constexpr int tileConnection = 3; // file descriptor

} // namespace screen
