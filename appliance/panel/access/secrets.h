// Random secrets, and what is kept of them.
#pragma once

#include <string>
#include <string_view>

namespace panel {

// 256 random bits as 64 hexadecimal digits. Throws std::runtime_error when the system has none.
std::string randomSecret();

// The hash that files keep instead of a secret: 64 hexadecimal digits. Good for random secrets, not for passwords.
std::string sha256Text(std::string_view text);

// Whether the texts are equal, in a time that does not tell where they differ.
bool sameSecret(std::string_view a, std::string_view b);

} // namespace panel
