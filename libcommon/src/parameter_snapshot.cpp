#include "libcommon/src/parameter_snapshot.h"

#include <utility>

std::string_view ParameterSnapshot::value(std::string_view name) const {
    const auto [section, key] = local::splitName(name);
    const auto found = sectionPositions.find(section);
    std::string_view latest;
    if (found != sectionPositions.end())
        for (std::uint32_t at = sections[found->second].first; at != none; at = values[at].next)
            if (local::NameEqual{}(values[at].key, key))
                latest = values[at].value;
    return latest;
}

namespace local {

namespace {

void complain(std::vector<Complaint>& complaints, std::size_t& more, const IniLine& line) {
    if (complaints.size() < maximumComplaints)
        complaints.push_back({line.number, line.reason});
    else
        ++more;
}

} // namespace

namespace {

// Fills a snapshot section by section.
class Filler {
public:
    explicit Filler(ParameterSnapshot& snapshot) : snapshot_(snapshot) {}

    void enterSection(std::string_view name) {
        const auto next = static_cast<std::uint32_t>(snapshot_.sections.size());
        const auto [at, isNew] = snapshot_.sectionPositions.try_emplace(name, next);
        if (isNew)
            snapshot_.sections.push_back({.name = name});
        current_ = at->second;
    }

    void add(const IniLine& line) {
        if (current_ == ParameterSnapshot::none) // above every section line
            enterSection(line.section);
        const auto position = static_cast<std::uint32_t>(snapshot_.values.size());
        snapshot_.values.push_back({.key = line.key, .value = line.value});
        ParameterSnapshot::Section& section = snapshot_.sections[current_];
        if (section.first == ParameterSnapshot::none)
            section.first = position;
        else
            snapshot_.values[section.last].next = position;
        section.last = position;
    }

private:
    ParameterSnapshot& snapshot_;
    std::uint32_t current_ = ParameterSnapshot::none; // position of the section that the lines belong to
};

} // namespace

std::vector<Complaint> parse(std::string text, ParameterSnapshot& snapshot) {
    snapshot.text = std::move(text);
    std::vector<Complaint> complaints;
    std::size_t more = 0;
    Filler filler(snapshot);
    IniReader reader(snapshot.text);
    for (IniLine line; reader.next(line);) {
        switch (line.kind) {
        case LineKind::blank:
        case LineKind::comment:
            break;
        case LineKind::section:
            filler.enterSection(line.section);
            break;
        case LineKind::key:
            filler.add(line);
            break;
        case LineKind::skipped:
            line.reason = "it is below a section line that can't be read";
            complain(complaints, more, line);
            break;
        case LineKind::unreadable:
            complain(complaints, more, line);
            break;
        }
    }
    if (more > 0)
        complaints.push_back({0, std::to_string(more) + " more lines can't be read"});
    return complaints;
}

Sections::Sections(std::shared_ptr<const ParameterSnapshot> snapshot, std::string_view group)
    : snapshot_(std::move(snapshot)), group_(group) {
    const std::size_t length = group.size();
    for (std::uint32_t at = 0; at < snapshot_->sections.size(); ++at) {
        const std::string_view name = snapshot_->sections[at].name;
        if (name.size() > length + 1 && name[length] == '.' && NameEqual{}(name.substr(0, length), group))
            positions_.push_back(at);
    }
}

bool Sections::are(const ParameterSnapshot& snapshot, std::string_view group) const {
    return snapshot_.get() == &snapshot && group_ == group;
}

SourceParams Sections::record(std::size_t position) const {
    const ParameterSnapshot::Section& section = snapshot_->sections[positions_[position]];
    SourceParams params;
    for (std::uint32_t at = section.first; at != ParameterSnapshot::none; at = snapshot_->values[at].next) {
        const ParameterSnapshot::Value& line = snapshot_->values[at];
        params[istring(line.key.data(), line.key.size())] = line.value;
    }
    params.try_emplace("Name", section.name.substr(group_.size() + 1));
    return params;
}

} // namespace local
