// Following the decoder on standard output.
#pragma once

#include <iosfwd>

// Prints changes for so many seconds (0: without an end), or until SIGINT or SIGTERM arrives.
void watchDecoder(double seconds, bool json, std::ostream& out);
