// Values in the text of a parameter file: setting and clearing several at once. Pure, no files.
//
// Everything else in the text stays byte for byte.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct ParameterValue {
    std::string name;                 // "Decoder.SequenceMode", "Encoder.Front door.Address"
    std::optional<std::string> value; // as it is to be read; nothing: the parameter is cleared
};

// With these values. A value goes into the last line of its name, where the library reads it; a new one to the end of its
// section, and a new section to the end of the text. Names ignore case.
std::string withValues(std::string_view text, const std::vector<ParameterValue>& values);

// Why a parameter file can't have this value; "" when it can.
std::string whyNotValue(std::string_view value);
