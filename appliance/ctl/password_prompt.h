// Asking for a password.
#pragma once

#include <string>

// Reads a password: from the terminal without showing it, or a line of standard input.
std::string readPassword(bool fromInput);
