// Finding a source by its index, its name, or the beginning of its name.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// The index of the source that `wanted` names among sources of these names (in index order). A number is an
// index; any other text, and a number that is no index, is a name, or the beginning of just one name, in any
// letter case. Throws Refused with a list of the sources when none or more than one fits.
int resolveSource(std::string_view wanted, const std::vector<std::string>& names);
