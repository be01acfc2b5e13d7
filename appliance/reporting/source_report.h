// The configured sources and what is known about them.
#pragma once

#include "appliance/reporting/in_force.h"
#include "appliance/streams/kept_status.h"

#include <libcommon/params.h>

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

struct SourceReport {
    int index = 0;
    std::string name;
    std::string address;
    std::vector<std::pair<std::string, std::string>> status;     // what detection and players found out
    std::vector<std::pair<std::string, std::string>> configured; // the section's other keys
    SourceDifference difference = {};                            // from what the last connect read
    std::optional<streams::KeptReport> warm = {}; // of the keeper; nothing: it has nothing to say
};

// All configured sources; passwords are replaced by "***", those in URLs, too.
std::vector<SourceReport> readSourceReports(const InForce& inForce);

// Adds what the keeper of warm sources says about them, if there is one.
void addWarmReports(std::vector<SourceReport>& sources);

// The names alone, in index order.
std::vector<std::string> sourceNames(const std::vector<SourceReport>& sources);

// A table with one line per source; `current` is marked with an asterisk.
std::string sourcesText(const std::vector<SourceReport>& sources, int current);
nlohmann::json sourcesJson(const std::vector<SourceReport>& sources, int current);

// Key=value lines: Index, Name, Address, the status values, then each configured key as "Configured.KEY".
std::string sourceText(const SourceReport& source);
nlohmann::json sourceJson(const SourceReport& source);
