// Writing one parameter: the file is replaced as a whole, under its lock.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace local {

// False, with a log line, when the file is as it was. Any thread; other processes that write the same file wait.
bool writeParameter(int fileId, std::string_view name, std::string_view value);

// Replaces the text of the file by what `edit` makes of it; nothing: it stays as it is, and the result is false. `edit` may
// be called again when another program has changed the file meanwhile. False also, with a log line, on failure.
using EditText = std::function<std::optional<std::string>(const std::string& text)>;
bool rewriteParameters(int fileId, const EditText& edit);

} // namespace local
