// Writing one parameter: the file is replaced as a whole, under its lock.
#pragma once

#include <string_view>

namespace local {

// False, with a log line, when the file is as it was. Any thread; other processes that write the same file wait.
bool writeParameter(int fileId, std::string_view name, std::string_view value);

} // namespace local
