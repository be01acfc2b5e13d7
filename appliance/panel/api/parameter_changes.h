// Changes of parameters: everything is checked before anything is written, and all is written in one step.
#pragma once

#include "appliance/panel/api/requests.h"
#include "appliance/reporting/source_report.h"
#include "appliance/settings/parameter_values.h"

#include <map>
#include <string>
#include <vector>

namespace panel {

// Why each parameter of a request is refused, by the name that the request used.
using Mistakes = std::map<std::string, std::string>;

// Nothing is wrong when it is empty. `sections`: the names of the configured sources' sections.
Mistakes mistakesIn(const std::vector<ParameterValue>& values, const std::vector<std::string>& sections);

// 409 with {"error", "errors"}.
Response mistakesResponse(const Mistakes& mistakes);

// Writes the values and says when they take effect. Throws Refused.
std::string writeValues(const std::vector<ParameterValue>& values);

// The texts of an object as values, each name with `prefix` before it; null clears a parameter.
std::vector<ParameterValue> valuesOf(const nlohmann::json& object, const std::string& prefix = "");

// The sections of the configured sources, from the file.
std::vector<std::string> configuredSections();

// A request to change one source.
struct SourceChange {
    int index = 0;
    std::string name;                                                       // present one
    std::string newName;                                                    // of the section; "": as it is
    std::vector<std::pair<std::string, std::optional<std::string>>> values; // key and value
    bool check = false;                                                     // writes nothing
    bool apply = true;
};

// {"name"?, "check"?, "apply"?, KEY: value ...}
SourceChange readSourceChange(const Body& body, const SourceReport& source);

// On a worker's thread. Throws Refused.
Response changeSource(const SourceChange& change);

} // namespace panel
