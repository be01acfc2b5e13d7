// Whether the graphics processor is worth using.
#pragma once

#include <string>

namespace screen {

// True when the display of this driver has a real graphics processor (not one that the CPU plays) that draws test
// pictures like the back end in memory, and with less of the CPU's time. Works in a process of its own, because drivers
// crash; takes some tenths of a second, at most ten seconds. Says in the log what was found.
bool gpuIsGood(const std::string& driver);

// Whether a renderer of that name is a program on the CPU: "llvmpipe (LLVM 15.0.6, 256 bits)".
bool isSoftware(const std::string& renderer);

} // namespace screen
