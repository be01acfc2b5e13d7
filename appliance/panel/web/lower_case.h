// Texts of HTTP that ignore the case of letters.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace panel {

// With the letters A to Z as small ones; every other byte stays.
inline std::string lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](unsigned char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character | 0x20)
                                                    : static_cast<char>(character);
    });
    return result;
}

} // namespace panel
