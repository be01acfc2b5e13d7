#include "appliance/settings/source_sections.h"

#include "appliance/settings/known_parameters.h"
#include "appliance/settings/text_lines.h"

#include <libcommon/parameter_lines.h>
#include <libcommon/text.h>

#include <algorithm>
#include <map>

namespace {

using libcommon::ParameterLine;

// A part of the text: a source's section, or anything between two of them.
struct Part {
    std::string name; // of the source; "": no source
    std::string text;
};

bool isComment(std::string_view line) {
    const std::string_view content = libcommon::trimmed(line);
    return content.starts_with('#') || content.starts_with(';');
}

std::string sourceOf(const ParameterLine& line) {
    if (line.kind != ParameterLine::Kind::Section || line.section.size() <= sourceGroup.size() ||
        !sameName(std::string_view(line.section).substr(0, sourceGroup.size()), sourceGroup))
        return "";
    return line.section.substr(sourceGroup.size());
}

// The line with which a section begins: the first of the comment lines right above its section line.
std::size_t beginOf(const std::vector<std::string>& lines, std::size_t sectionLine) {
    while (sectionLine > 0 && isComment(lines[sectionLine - 1]))
        --sectionLine;
    return sectionLine;
}

std::vector<Part> partsOf(std::string_view text) {
    const std::vector<std::string> lines = linesOf(text);
    std::map<std::size_t, std::string> begins{{0, ""}}; // line to name
    for (const ParameterLine& line : libcommon::parameterLines(text)) {
        if (line.kind == ParameterLine::Kind::Section)
            begins[beginOf(lines, line.number - 1)] = sourceOf(line);
    }
    std::vector<Part> parts;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (const auto begin = begins.find(i); begin != begins.end())
            parts.push_back({begin->second, ""});
        parts.back().text += lines[i];
    }
    return parts;
}

std::string joined(const std::vector<Part>& parts) {
    std::string text;
    for (const Part& part : parts) {
        // Only the file's last line may be without its end.
        if (!text.empty() && !text.ends_with('\n'))
            text += '\n';
        text += part.text;
    }
    return text;
}

// The first source with that name; null when there is none.
const Part* find(const std::vector<Part>& parts, std::string_view name) {
    const auto found = std::ranges::find_if(
        parts, [&](const Part& part) { return !part.name.empty() && sameName(part.name, name); });
    return found == parts.end() ? nullptr : &*found;
}

} // namespace

std::vector<std::string> sourceSectionNames(std::string_view text) {
    std::vector<std::string> names;
    for (const ParameterLine& line : libcommon::parameterLines(text)) {
        const std::string name = sourceOf(line);
        if (!name.empty() &&
            std::ranges::none_of(names, [&](const auto& one) { return sameName(one, name); }))
            names.push_back(name);
    }
    return names;
}

std::string whyNotSourceName(std::string_view name) {
    constexpr std::size_t longest = 100;
    if (name.empty())
        return "the name is empty";
    if (name.size() > longest)
        return "the name is longer than 100 bytes";
    if (name != libcommon::trimmed(name))
        return "the name begins or ends with a blank";
    if (libcommon::printable(name) != name)
        return "the name has a control character or is no UTF-8";
    const std::string line = "[Encoder." + std::string(name) + "]";
    const std::vector<ParameterLine> read = libcommon::parameterLines(line);
    if (read.size() != 1 || sourceOf(read.front()) != name)
        return "a section of the parameter file can't have this name";
    return "";
}

std::string withoutSource(std::string_view text, std::string_view name) {
    std::vector<Part> parts = partsOf(text);
    std::erase_if(parts, [&](const Part& part) { return !part.name.empty() && sameName(part.name, name); });
    return joined(parts);
}

std::string withSourceRenamed(std::string_view text, std::string_view name, std::string_view newName) {
    std::vector<std::string> lines = linesOf(text);
    for (const ParameterLine& line : libcommon::parameterLines(text)) {
        if (!sourceOf(line).empty() && sameName(sourceOf(line), name)) {
            std::string& written = lines[line.number - 1];
            const std::string end = written.ends_with("\r\n") ? "\r\n" : written.ends_with('\n') ? "\n" : "";
            written = "[Encoder." + std::string(newName) + "]" + end;
        }
    }
    std::string renamed;
    for (const std::string& line : lines)
        renamed += line;
    return renamed;
}

std::string withSourcesOrdered(std::string_view text, const std::vector<std::string>& names) {
    const std::vector<Part> present = partsOf(text);
    std::vector<Part> parts;
    std::size_t next = 0;
    for (const Part& part : present) {
        if (part.name.empty() || find(present, part.name) != &part) {
            parts.push_back(part); // not a source, or a repetition of one
            continue;
        }
        if (const Part* placed = next < names.size() ? find(present, names[next++]) : nullptr)
            parts.push_back(*placed);
    }
    return joined(parts);
}

std::string withSource(std::string_view text, std::string_view name, const std::vector<std::string>& lines) {
    std::string added(text);
    if (!added.empty())
        added += added.ends_with("\n\n") ? "" : added.ends_with('\n') ? "\n" : "\n\n";
    added += "[Encoder." + std::string(name) + "]\n";
    for (const std::string& line : lines)
        added += line + '\n';
    return added;
}
