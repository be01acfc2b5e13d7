// Small operations on text that several rooms need.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// ASCII letters only.
bool equalIgnoringCase(std::string_view left, std::string_view right);

// Without the blanks and tabs at both ends.
std::string_view trimmed(std::string_view text);

// Percent-decoding. A "%" without two hexadecimal digits after it is kept.
std::string percentDecoded(std::string_view text);

// A decimal number of at most nine digits; nothing if there is any other character.
std::optional<int> wholeNumber(std::string_view text);

// The text as a JSON string with its quotes. Bytes above 127 are read as Latin-1.
std::string jsonText(std::string_view text);
