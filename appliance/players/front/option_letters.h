// What the front of a player has to know of the players' options.
#pragma once

#include <string_view>

namespace player {

// The options that take a value, in all players.
inline constexpr std::string_view lettersWithValue = "upmonrwPtiqcMH";

// Those whose value must not be visible in the process list.
inline constexpr std::string_view secretLetters = "up";

// The environment variable that names the descriptor with the complete arguments, each with its NUL, the
// program's name first.
inline constexpr const char* argumentsVariable = "PLAYER_ARGUMENTS";

} // namespace player
