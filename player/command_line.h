// A player's command line: which of the player programs, with which arguments, for a detected source.
//
// Used in the forked child only; what it changes is not seen by the supervisor.
#pragma once

#include "sources/source_entry.h"

#include <cstdint>
#include <string>
#include <vector>

// The argument list for the entry; `port` is the player's UDP port, 65535 for none. Extends the entry's
// streamOptions on the way.
std::vector<std::string> buildCommandLine(SourceEntry& entry, std::uint16_t port);

// Replaces the process by the player; when that fails, logs it and ends the process with status 13.
[[noreturn]] void executePlayer(SourceEntry& entry, std::uint16_t port);
