// Numbers in texts from encoders: decimal digits at the start, followed by anything.
#pragma once

#include <cstdint>

namespace detect {

// 0 without digits; saturates at the limits of the type.
long long decimal(const char* text);

// The same, saturating at int's limits.
int decimalInt(const char* text);

// The same as a port; 0 for a number that is no port.
std::uint16_t decimalPort(const char* text);

} // namespace detect
