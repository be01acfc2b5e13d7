// What the keys of a keyboard mean to the monitor.
#pragma once

#include "appliance/screen/monitor/content.h"

#include <cstdint>
#include <optional>

namespace screen {

// The key of this SDL key code; nothing for a key that the content does not know.
std::optional<Key> keyOf(std::int32_t code);

} // namespace screen
