// The lines of a parameter file, as its reader and its editor both see them.
//
// Everything is a view into the file's text, and the lines joined are that text, byte for byte: the editor changes one
// value and copies everything else.
#pragma once

#include <cstddef>
#include <string_view>

namespace local {

// Longer lines can't be read, and a write must not make one.
inline constexpr std::size_t maximumIniLine = 65536;

enum class LineKind {
    blank,
    comment,
    section,    // opens `section`
    key,        // `key` = `value` in `section`
    unreadable, // `reason` tells why
    skipped,    // a key below a section line that can't be read: it belongs nowhere
};

struct IniLine {
    LineKind kind = LineKind::blank;
    std::size_t number = 0;   // from 1
    std::string_view whole;   // with its line end, if it has one
    std::string_view content; // without line end and surrounding blanks
    std::string_view section; // the section that the line opens or is in
    std::string_view key;
    std::string_view value; // without surrounding blanks
    const char* reason = "";
};

// Hands out the lines of `text` one after the other. A byte order mark belongs to no line.
class IniReader {
public:
    explicit IniReader(std::string_view text);
    bool next(IniLine& line);

private:
    void readSection(IniLine& line);
    void readKey(IniLine& line) const;

    std::string_view rest_;
    std::string_view section_;
    bool sectionUnreadable_ = false;
    std::size_t number_ = 0;
};

inline constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

// A control character other than a tab.
bool hasControlCharacter(std::string_view text);

// A parameter's name: the part before the last dot is its section.
struct ParameterName {
    std::string_view section;
    std::string_view key;
};
ParameterName splitName(std::string_view name);

// Names ignore ASCII case, in every locale.
struct NameHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const;
    std::size_t operator()(const ParameterName& name) const;
};
struct NameEqual {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const;
    bool operator()(const ParameterName& a, const ParameterName& b) const;
};

} // namespace local
