// Changing one value in the text of a parameter file.
#pragma once

#include <string>
#include <string_view>

namespace local {

// Why a parameter of this name and value can't be in a parameter file; nullptr when it can.
const char* whyNotWritable(std::string_view name, std::string_view value);

// `text` with the parameter set to `value`; all else stays the same, byte for byte. An existing parameter is changed in
// its line (the last one, which counts). A new one goes to the end of its section, a new section to the end of the
// file. Line ends are those of the file. Name and value are writable.
std::string withParameter(std::string_view text, std::string_view name, std::string_view value);

} // namespace local
