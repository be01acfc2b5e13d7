// Writing an archive.
#pragma once

#include "appliance/bug_report/part.h"

#include <cstddef>
#include <string>
#include <vector>

namespace bug_report {

// Writes the parts into a folder of that name in an archive (tar, compressed with gzip). `file`: "-" is standard output; any
// other must not exist yet, and nobody but its owner may read it. Returns its size in bytes. Throws std::runtime_error with
// the reason; a file that was begun is then removed.
std::size_t writeArchive(const std::string& file, const std::string& folder, const std::vector<Part>& parts);

} // namespace bug_report
