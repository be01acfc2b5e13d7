// Hashes of passwords: yescrypt, from libcrypt. It costs memory and time on purpose, so neither function belongs on the
// main loop's thread.
#pragma once

#include <string>

namespace panel {

// A new hash with a random salt. Throws std::runtime_error.
std::string passwordHash(const std::string& password);

// Whether the password is that of the hash. An empty or unusable hash fits no password, and takes as long.
bool fitsPassword(const std::string& password, const std::string& hash);

} // namespace panel
