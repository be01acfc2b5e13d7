// Finding a source by its index, its name, or the beginning of its name.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// Returns the index of the source that `wanted` means; `names` has the names of all sources in index order. A number
// is an index. Any other text, and a number that is not an index, is a name or the beginning of exactly one name, in
// any letter case. Throws Refused with a list of the sources when none or more than one fits.
int resolveSource(std::string_view wanted, const std::vector<std::string>& names);
