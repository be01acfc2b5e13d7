#include "libcommon/src/parameter_snapshot.h"

std::string_view ParameterSnapshot::value(std::string_view name) const {
    const auto found = values.find(local::splitName(name));
    return found == values.end() ? std::string_view{} : found->second;
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

std::vector<Complaint> parse(std::string text, ParameterSnapshot& snapshot) {
    snapshot.text = std::move(text);
    std::unordered_map<std::string_view, std::size_t, NameHash, NameEqual> positions;
    const auto sectionOf = [&](std::string_view name) -> ParameterSnapshot::Section& {
        const auto [at, isNew] = positions.try_emplace(name, snapshot.sections.size());
        if (isNew)
            snapshot.sections.push_back({name, {}});
        return snapshot.sections[at->second];
    };

    std::vector<Complaint> complaints;
    std::size_t more = 0;
    IniReader reader(snapshot.text);
    for (IniLine line; reader.next(line);) {
        switch (line.kind) {
        case LineKind::blank:
        case LineKind::comment:
            break;
        case LineKind::section:
            sectionOf(line.section);
            break;
        case LineKind::key:
            sectionOf(line.section).values.emplace_back(line.key, line.value);
            snapshot.values.insert_or_assign({line.section, line.key}, line.value);
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

std::vector<SourceParams> subGroups(const ParameterSnapshot& snapshot, std::string_view group) {
    std::vector<SourceParams> groups;
    for (const ParameterSnapshot::Section& section : snapshot.sections) {
        const std::size_t length = group.size();
        if (section.name.size() <= length + 1 || section.name[length] != '.' ||
            !NameEqual{}(section.name.substr(0, length), group))
            continue;
        SourceParams& params = groups.emplace_back();
        for (const auto& [key, value] : section.values)
            params[istring(key.data(), key.size())] = value;
        params.try_emplace("Name", section.name.substr(length + 1));
    }
    return groups;
}

} // namespace local
