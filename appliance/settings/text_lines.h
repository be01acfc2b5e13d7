// The lines of a parameter file's text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// Each with its line end; the last one may have none. Together they are the text.
std::vector<std::string> linesOf(std::string_view text);
