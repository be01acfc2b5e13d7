// Finding the intended name behind a mistyped one.
#pragma once

#include <span>
#include <string>
#include <string_view>

// The one of `names` that needs the fewest typed corrections to become `name`, letter case aside; "" when each needs
// more than a third of its length.
std::string nearestName(std::string_view name, std::span<const std::string> names);
