// Paths below the appliance root for code that must not allocate: signal handlers, and children between fork and exec.
#pragma once

#include <cstddef>
#include <initializer_list>

namespace local {

// Writes the appliance root and the parts behind it into `path`. False with errno when it does not fit. Safe in a signal
// handler.
bool appliancePathInto(char* path, std::size_t size, std::initializer_list<const char*> parts);

} // namespace local
