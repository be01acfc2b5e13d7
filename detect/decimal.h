// Numbers as encoders write them: decimal digits at the start of a text, whatever follows.
#pragma once

#include <cstdint>

namespace detect {

// 0 without digits; saturates.
long long decimal(const char* text);

// The same, saturating at int's limits.
int decimalInt(const char* text);

// The same as a port; 0 for what is none.
std::uint16_t decimalPort(const char* text);

} // namespace detect
