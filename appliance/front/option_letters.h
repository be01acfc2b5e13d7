// The part of the players' options that their front needs.
#pragma once

#include <string_view>

namespace front {

// The options that take a value, in all players.
inline constexpr std::string_view lettersWithValue = "upmonrwPtiqcMH";

// The options whose value must not be visible in the process list.
inline constexpr std::string_view secretLetters = "up";

// The environment variable that names the descriptor with the complete arguments, each with its NUL, the
// program's name first.
inline constexpr const char* argumentsVariable = "PLAYER_ARGUMENTS";

} // namespace front
