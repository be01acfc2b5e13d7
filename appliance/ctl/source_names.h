// Which source a person means: an index, a name, or the beginning of a name.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// The index of the source meant by `wanted` among sources of these names (in index order). A number is an
// index; everything else, and a number that is no index, is a name, or the beginning of just one name, in any
// letter case. Throws Refused, naming what there is, when nothing or more than one fits.
int resolveSource(std::string_view wanted, const std::vector<std::string>& names);
