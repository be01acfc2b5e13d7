#include "libcommon/src/ini_lines.h"

#include <libcommon/text.h>

#include <algorithm>
#include <cstdint>

namespace local {

using libcommon::trimmed;

namespace {

bool isComment(std::string_view content) {
    return content.front() == '#' || content.front() == ';';
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

} // namespace

bool hasControlCharacter(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\t') || byte == 0x7f;
    });
}

ParameterName splitName(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos)
        return {{}, name};
    return {name.substr(0, dot), name.substr(dot + 1)};
}

// FNV-1a over the lower-cased bytes.
std::size_t NameHash::operator()(std::string_view name) const {
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char c : name)
        hash = (hash ^ static_cast<unsigned char>(lower(c))) * 0x100000001b3U;
    return static_cast<std::size_t>(hash); // the lower half, where addresses have 32 bits
}

std::size_t NameHash::operator()(const ParameterName& name) const {
    return (*this)(name.section) * 31 + (*this)(name.key);
}

bool NameEqual::operator()(std::string_view a, std::string_view b) const {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lower(x) == lower(y); });
}

bool NameEqual::operator()(const ParameterName& a, const ParameterName& b) const {
    return (*this)(a.section, b.section) && (*this)(a.key, b.key);
}

IniReader::IniReader(std::string_view text) : rest_(text), section_(text.substr(0, 0)) {
    if (rest_.starts_with(byteOrderMark))
        rest_.remove_prefix(byteOrderMark.size());
}

bool IniReader::next(IniLine& line) {
    if (rest_.empty())
        return false;
    line = IniLine{};
    line.number = ++number_;
    line.whole = rest_.substr(0, std::min(rest_.find('\n'), rest_.size() - 1) + 1);
    rest_.remove_prefix(line.whole.size());

    std::string_view content = line.whole;
    if (content.ends_with('\n'))
        content.remove_suffix(1);
    if (content.ends_with('\r'))
        content.remove_suffix(1);
    line.content = trimmed(content);
    line.section = section_;

    if (line.content.empty()) {
        line.kind = LineKind::blank;
    } else if (isComment(line.content)) {
        line.kind = LineKind::comment;
    } else if (line.content.front() == '[') {
        readSection(line);
    } else if (sectionUnreadable_) {
        line.kind = LineKind::skipped;
    } else {
        readKey(line);
    }
    return true;
}

void IniReader::readSection(IniLine& line) {
    const std::size_t end = line.content.find(']');
    std::string_view name;
    std::string_view after;
    if (end != std::string_view::npos) {
        name = trimmed(line.content.substr(1, end - 1));
        after = trimmed(line.content.substr(end + 1));
    }
    if (line.content.size() > maximumIniLine)
        line.reason = "a section line that is too long";
    else if (hasControlCharacter(line.content))
        line.reason = "a section line with a control character";
    else if (end == std::string_view::npos)
        line.reason = "a section line without ']'";
    else if (name.empty() || name.front() == '.' || name.back() == '.')
        line.reason = "a section line without a full name";
    else if (!after.empty() && !isComment(after))
        line.reason = "a section line with text after ']'";
    // The keys below must not end up in the section above.
    sectionUnreadable_ = *line.reason != '\0';
    line.kind = sectionUnreadable_ ? LineKind::unreadable : LineKind::section;
    section_ = sectionUnreadable_ ? std::string_view{} : name;
    line.section = section_;
}

void IniReader::readKey(IniLine& line) const {
    line.kind = LineKind::unreadable;
    const std::size_t equals = line.content.find('=');
    if (line.content.size() > maximumIniLine) {
        line.reason = "the line is too long";
    } else if (hasControlCharacter(line.content)) {
        line.reason = "a control character";
    } else if (equals == std::string_view::npos) {
        line.reason = "no '='";
    } else {
        line.key = trimmed(line.content.substr(0, equals));
        line.value = trimmed(line.content.substr(equals + 1));
        if (line.key.empty())
            line.reason = "no name before '='";
        else if (line.key.find('.') != std::string_view::npos)
            line.reason = "a dot in the name: the part before it belongs into the section line";
        else
            line.kind = LineKind::key;
    }
}

} // namespace local
