// Reading, writing and listing parameters.
//
// Each command returns the text to print and throws Refused when it was refused or failed.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

// The value of a parameter; Refused when it is not set.
std::string getParameter(const std::string& name);

// Writes it and says when the value takes effect. Unknown names, unknown values and the supervisor's own values
// are written only with `force`. "Decoder.Connected" is announced to the decoder.
std::string setParameter(const std::string& name, const std::string& value, bool force);

// Writes it; Refused when it does not read back.
void writeParameterChecked(const std::string& name, const std::string& value);

// Full names of all parameters, those of each configured source included, such as "Encoder.Front door.Address".
std::vector<std::string> parameterNames();

// A table: name, values, when a new value takes effect.
std::string parametersText();
nlohmann::json parametersJson();
