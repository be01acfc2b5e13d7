// The numbers in a source's status value "ErrorCode", in words.
#pragma once

#include <string>
#include <string_view>

// Whether the code means an error: it is neither empty nor 0.
bool isError(std::string_view code);

// "no connection to the encoder"; "" for no error.
std::string errorWords(std::string_view code);

// "error 32 (no connection to the encoder)"; "" for no error.
std::string errorText(std::string_view code);
