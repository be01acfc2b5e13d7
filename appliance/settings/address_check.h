// Whether a text is an encoder's address, and what is wrong with it if not.
#pragma once

#include <string>
#include <string_view>

// "" for HOST, HOST:PORT, [IPv6] or [IPv6]:PORT; else the mistake and the right form, as in "has a scheme: write
// "camera:8080"".
std::string addressMistake(std::string_view address);
