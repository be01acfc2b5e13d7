#include <libcommon/parameter_lines.h>

#include "libcommon/src/ini_lines.h"

namespace libcommon {

namespace {

ParameterLine::Kind kindOf(local::LineKind kind) {
    switch (kind) {
    case local::LineKind::blank:
    case local::LineKind::comment:
        return ParameterLine::Kind::Blank;
    case local::LineKind::section:
        return ParameterLine::Kind::Section;
    case local::LineKind::key:
        return ParameterLine::Kind::Key;
    case local::LineKind::unreadable:
    case local::LineKind::skipped:
        return ParameterLine::Kind::Unreadable;
    }
    return ParameterLine::Kind::Blank;
}

} // namespace

std::vector<ParameterLine> parameterLines(std::string_view text) {
    std::vector<ParameterLine> lines;
    local::IniReader reader(text);
    for (local::IniLine line; reader.next(line);) {
        const bool skipped = line.kind == local::LineKind::skipped;
        lines.push_back({.kind = kindOf(line.kind),
                         .number = line.number,
                         .section = std::string(line.section),
                         .key = std::string(line.key),
                         .value = std::string(line.value),
                         .reason = skipped ? "it is below a section line that can't be read" : line.reason});
    }
    return lines;
}

} // namespace libcommon
