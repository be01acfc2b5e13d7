// JSON as it is printed.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

// One line. Bytes that are not UTF-8 become U+FFFD: a program that reads the answer must be able to parse it.
std::string jsonLine(const nlohmann::json& json);

// Several indented lines, with the last line end.
std::string jsonLines(const nlohmann::json& json);
