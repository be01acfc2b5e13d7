// Files that only the decoder's user may read.
#pragma once

#include <string>

namespace panel {

// Replaces the file: afterwards it is whole and readable by its owner only. Where root writes it, it belongs to the owner
// of its folder. Throws std::system_error.
void writePrivateFile(const std::string& path, const std::string& text);

// The text of the file; "" if it does not exist. Throws std::system_error, and std::runtime_error for more than 1 MiB or
// if other users may read it.
std::string readPrivateFile(const std::string& path);

// Makes the folder for its owner only, with the same owner as the folder above it. Throws std::system_error.
void makePrivateFolder(const std::string& path);

} // namespace panel
