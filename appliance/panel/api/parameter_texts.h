// What each parameter does, in the words of docs/parameters.md, which is part of the program.
#pragma once

#include <string>
#include <string_view>

namespace panel {

// The description of a parameter or of a source's key, as plain text; "" when the page has none. Main loop's thread.
std::string parameterText(std::string_view name);

} // namespace panel
