// Paths in the run directory for code that must not allocate: signal handlers, and children between fork and
// exec.
#pragma once

#include <cstddef>

namespace local {

// Writes APPLIANCE_ROOT/run/decoder/PREFIX NAME SUFFIX (without the blanks) into `path`. False when it does
// not fit. Safe in a signal handler.
bool runPath(char* path, std::size_t size, const char* prefix, const char* name, const char* suffix);

} // namespace local
