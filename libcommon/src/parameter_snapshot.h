// One parsed version of a parameter file. Never changes after it was parsed; shared between threads.
#pragma once

#include "libcommon/src/ini_lines.h"

#include <libcommon/params.h>

#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

struct ParameterSnapshot {
    // A section with its keys in file order, doubles included. A section that comes twice is one.
    struct Section {
        std::string_view name;
        std::vector<std::pair<std::string_view, std::string_view>> values;
    };

    ParameterSnapshot() = default;
    ParameterSnapshot(const ParameterSnapshot&) = delete; // the views below look into `text`
    ParameterSnapshot& operator=(const ParameterSnapshot&) = delete;

    // The value of "Section.Key"; empty when it is missing.
    std::string_view value(std::string_view name) const;

    std::string text;
    std::vector<Section> sections; // in the order of their first lines
    std::unordered_map<local::ParameterName, std::string_view, local::NameHash, local::NameEqual> values;
    bool readable = true; // false: the file is there but could not be read, and everything above is empty
};

namespace local {

// A line that could not be read, for the log.
struct Complaint {
    std::size_t line; // 0: not about a line
    std::string reason;
};

// Parses `text` into an empty snapshot. At most `maximumComplaints` lines are named one by one, so that a
// file that is something else altogether does not flood the log.
inline constexpr std::size_t maximumComplaints = 50;
std::vector<Complaint> parse(std::string text, ParameterSnapshot& snapshot);

// The sections [GROUP.NAME] of a snapshot, as getSubGroups() gives them.
std::vector<SourceParams> subGroups(const ParameterSnapshot& snapshot, std::string_view group);

} // namespace local
