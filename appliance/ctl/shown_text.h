// Texts from outside, made fit to be shown.
#pragma once

#include <string>
#include <string_view>

// Valid UTF-8 without control characters: safe on a terminal and in JSON. For everything that comes from an encoder, a
// file or another process.
std::string shown(std::string_view text);

// As `shown`, in quotation marks.
std::string inQuotes(std::string_view text);
