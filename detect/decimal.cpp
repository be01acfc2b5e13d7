#include "detect/decimal.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace detect {

long long decimal(const char* text) {
    return std::strtoll(text, nullptr, 10);
}

int decimalInt(const char* text) {
    return static_cast<int>(std::clamp<long long>(decimal(text), INT_MIN, INT_MAX));
}

std::uint16_t decimalPort(const char* text) {
    const long long number = decimal(text);
    return number < 0 || number > UINT16_MAX ? 0 : static_cast<std::uint16_t>(number);
}

} // namespace detect
