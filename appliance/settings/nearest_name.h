// Finding the intended name behind a mistyped one.
#pragma once

#include <span>
#include <string>
#include <string_view>

// The one of `names` that needs the fewest corrections to become `name`, ignoring case; "" when each of them needs more
// corrections than a third of its length.
std::string nearestName(std::string_view name, std::span<const std::string> names);
