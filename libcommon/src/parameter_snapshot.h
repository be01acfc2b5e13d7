// One parsed version of a parameter file. Never changes after it was parsed; shared between threads.
#pragma once

#include "libcommon/src/ini_lines.h"

#include <libcommon/params.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

struct ParameterSnapshot {
    static constexpr std::uint32_t none = UINT32_MAX;

    struct Value {
        std::string_view key;
        std::string_view value;
        std::uint32_t next = none; // the section's next value: a position in `values`
    };

    // A section with its values in file order, doubles included. A section that comes twice is one.
    struct Section {
        std::string_view name;
        std::uint32_t first = none; // positions in `values`
        std::uint32_t last = none;
    };

    ParameterSnapshot() = default;
    ParameterSnapshot(const ParameterSnapshot&) = delete; // the views below look into `text`
    ParameterSnapshot& operator=(const ParameterSnapshot&) = delete;

    // The value of "Section.Key"; empty when it is missing.
    std::string_view value(std::string_view name) const;

    std::string text;
    std::vector<Section> sections; // in the order of their first lines
    std::vector<Value> values; // in file order, all sections in one: thousands of sources cost one allocation
    std::unordered_map<std::string_view, std::uint32_t, local::NameHash, local::NameEqual> sectionPositions;
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

// The sections [GROUP.NAME] of a snapshot: what getSubGroups() returns.
class Sections : public SubGroupList {
public:
    Sections(std::shared_ptr<const ParameterSnapshot> snapshot, std::string_view group);

    // Whether these are that group's sections in that snapshot.
    bool are(const ParameterSnapshot& snapshot, std::string_view group) const;

    std::size_t size() const override { return positions_.size(); }
    SourceParams record(std::size_t position) const override;

private:
    std::shared_ptr<const ParameterSnapshot> snapshot_;
    std::string group_;
    std::vector<std::uint32_t> positions_; // in the snapshot's sections
};

} // namespace local
