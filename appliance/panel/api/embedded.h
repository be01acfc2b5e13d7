// Documents that are part of the program; their texts last as long as it runs. Any thread.
#pragma once

#include <string_view>

namespace panel {

std::string_view openApiDocument(); // openapi.json
std::string_view parametersPage();  // docs/parameters.md

} // namespace panel
