#include "appliance/settings/parameter_values.h"

#include "appliance/settings/known_parameters.h"
#include "appliance/settings/text_lines.h"

#include <libcommon/parameter_lines.h>
#include <libcommon/text.h>

#include <algorithm>

namespace {

using libcommon::ParameterLine;

constexpr std::size_t longestValue = 50'000; // bytes; the library refuses lines of more than about 56 KiB

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line;
    return text;
}

bool isLineOf(const ParameterLine& line, const std::string& section, const std::string& key) {
    return line.kind == ParameterLine::Kind::Key && sameName(line.section, section) &&
           sameName(line.key, key);
}

std::string without(std::string_view text, const std::string& section, const std::string& key) {
    std::vector<std::string> lines = linesOf(text);
    for (const ParameterLine& line : libcommon::parameterLines(text)) {
        if (isLineOf(line, section, key) && line.number <= lines.size())
            lines[line.number - 1].clear();
    }
    return joined(lines);
}

// Behind the last line of the section that says something; 0: there is no such section.
std::size_t endOfSection(const std::vector<ParameterLine>& lines, const std::string& section) {
    std::size_t end = 0;
    for (const ParameterLine& line : lines) {
        if (line.kind != ParameterLine::Kind::Blank && sameName(line.section, section))
            end = line.number;
    }
    return end;
}

std::string with(std::string_view text, const std::string& section, const std::string& key,
                 const std::string& value) {
    const std::vector<ParameterLine> parsed = libcommon::parameterLines(text);
    std::vector<std::string> lines = linesOf(text);
    const std::string written = key + " = " + value + '\n';
    const auto last = std::ranges::find_if(parsed.rbegin(), parsed.rend(), [&](const ParameterLine& line) {
        return isLineOf(line, section, key);
    });
    if (last != parsed.rend() && last->number <= lines.size()) {
        lines[last->number - 1] = last->key + " = " + value + '\n';
        return joined(lines);
    }
    const std::size_t end = std::min(endOfSection(parsed, section), lines.size());
    if (!lines.empty() && !lines.back().ends_with('\n'))
        lines.back() += '\n';
    if (end == 0)
        return joined(lines) + (lines.empty() ? "" : "\n") + '[' + section + "]\n" + written;
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(end), written);
    return joined(lines);
}

} // namespace

std::string withValues(std::string_view text, const std::vector<ParameterValue>& values) {
    std::string result(text);
    for (const ParameterValue& parameter : values) {
        const std::size_t dot = parameter.name.rfind('.');
        if (dot == std::string::npos)
            continue;
        const std::string section = parameter.name.substr(0, dot);
        const std::string key = parameter.name.substr(dot + 1);
        result =
            parameter.value ? with(result, section, key, *parameter.value) : without(result, section, key);
    }
    return result;
}

std::string whyNotValue(std::string_view value) {
    if (value.size() > longestValue)
        return "is too long";
    if (libcommon::printable(value) != value)
        return "has a character that the parameter file can't have";
    if (libcommon::trimmed(value) != value)
        return "begins or ends with a blank";
    return "";
}
