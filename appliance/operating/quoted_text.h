// Quotes texts from outside, so that a sentence can contain them.
#pragma once

#include <string>
#include <string_view>

// The printable form of the text, in quotation marks.
std::string inQuotes(std::string_view text);
