// Finding the mistakes in a parameter file.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

struct Finding {
    std::size_t line = 0; // from 1; 0: the finding is about the whole file
    std::string reason;
    std::string remedy; // "" when the reason already says it
};

// All mistakes of the text of parameter file 0, in the order of its lines: lines and values that can't be read, are
// unknown, have no effect, are outside their range, or are missing.
std::vector<Finding> findMistakes(std::string_view text);

// "FILE:LINE: reason; remedy", one per line, and a last line with the count.
std::string findingsText(const std::string& file, const std::vector<Finding>& findings);
nlohmann::json findingsJson(const std::string& file, const std::vector<Finding>& findings);

// The text of a parameter file, "-" for standard input. Throws Refused with the reason when it can't be read.
std::string readParameterText(const std::string& file);

// Parameter file 0 of this appliance.
std::string configurationFile();
