// Files that a writer did not finish, because it was killed or crashed.
//
// A file is replaced as a whole: the new one is written under another name and then renamed. Such a name is
// ".NAME.PID.TID" (replaceSmallFile()) or ".NAME.new" (parameter files), and it stays when its writer dies.
#pragma once

#include <string>
#include <string_view>

namespace local {

// Whether this regular file is one, and nobody writes it any more: its process is dead, or it is older than ten seconds.
bool isLeftFile(const std::string& path, std::string_view name);

// Removes those in one folder; a failure is logged. A folder that is missing has none. Any thread.
void removeLeftFilesIn(const std::string& folder);

} // namespace local
