#include "libcommon/src/parameter_edit.h"

#include "libcommon/src/ini_lines.h"

#include <libcommon/text.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace local {

using libcommon::trimmed;

namespace {

// Where in the text a write has to act. Positions are offsets into the text.
struct Place {
    std::optional<IniLine> key;      // the line that holds the value now
    bool sectionFound = false;       // in the latest of its occurrences:
    std::size_t sectionEnd = 0;      // where a new line of the section goes
    std::string_view lineEnd = "\n"; // the file's own
    bool endsWithoutLineEnd = false; // the file's last line has none
    bool endsWithText = false;       // the file's last line is not blank
};

std::size_t offset(std::string_view text, std::string_view part) {
    return static_cast<std::size_t>(part.data() - text.data());
}

// The end of a section's own lines: blank lines at its end stay behind what is added, and so does a comment
// that stands right above the next section line with a blank line before it: it speaks of that section.
std::size_t ownLines(const std::vector<LineKind>& kinds, bool sectionFollows) {
    std::size_t end = kinds.size();
    if (sectionFollows) {
        std::size_t comments = end;
        while (comments > 0 && kinds[comments - 1] == LineKind::comment)
            --comments;
        if (comments > 0 && kinds[comments - 1] == LineKind::blank)
            end = comments;
    }
    while (end > 0 && kinds[end - 1] == LineKind::blank)
        --end;
    return end;
}

// Walks the lines once and notes the last line of the wanted key and the last section of its name.
class PlaceFinder {
public:
    PlaceFinder(std::string_view text, const ParameterName& wanted) : text_(text), wanted_(wanted) {
        // Keys that stand before every section line belong to the section without a name.
        inWanted_ = wanted.section.empty();
        headerEnd_ = text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
    }

    Place find() {
        IniReader reader(text_);
        for (IniLine line; reader.next(line);) {
            if (line.number == 1 && line.whole.ends_with("\r\n"))
                place_.lineEnd = "\r\n";
            if (line.content.starts_with('['))
                enterSection(line);
            else
                takeLine(line);
            place_.endsWithoutLineEnd = !line.whole.ends_with('\n');
            place_.endsWithText = line.kind != LineKind::blank;
        }
        leaveSection(false);
        return place_;
    }

private:
    void enterSection(const IniLine& line) {
        leaveSection(true);
        inWanted_ = line.kind == LineKind::section && NameEqual{}(line.section, wanted_.section);
        headerEnd_ = offset(text_, line.whole) + line.whole.size();
    }

    void takeLine(const IniLine& line) {
        if (!inWanted_)
            return;
        kinds_.push_back(line.kind);
        ends_.push_back(offset(text_, line.whole) + line.whole.size());
        if (line.kind == LineKind::key && NameEqual{}(line.key, wanted_.key))
            place_.key = line;
    }

    void leaveSection(bool sectionFollows) {
        if (inWanted_) {
            const std::size_t own = ownLines(kinds_, sectionFollows);
            place_.sectionFound = true;
            place_.sectionEnd = own == 0 ? headerEnd_ : ends_[own - 1];
        }
        inWanted_ = false;
        kinds_.clear();
        ends_.clear();
    }

    std::string_view text_;
    const ParameterName& wanted_;
    Place place_;
    bool inWanted_;
    std::size_t headerEnd_;
    std::vector<LineKind> kinds_; // of the wanted section's lines so far
    std::vector<std::size_t> ends_;
};

std::string withValue(std::string_view text, const IniLine& line, std::string_view value) {
    std::size_t from = offset(text, line.value);
    std::string_view space;
    if (line.value.empty()) {
        // "Key =" and "Key=   " both get the value where a person would have put it.
        const std::size_t equals = text.find('=', offset(text, line.key) + line.key.size());
        from = equals + 1;
        if (from < text.size() && text[from] == ' ')
            ++from;
        else if (text[equals - 1] == ' ')
            space = " ";
    }
    std::string result;
    result.reserve(text.size() + value.size() + 1);
    result.append(text.substr(0, from)).append(value.empty() ? "" : space).append(value);
    return result.append(text.substr(from + line.value.size()));
}

} // namespace

const char* whyNotWritable(std::string_view name, std::string_view value) {
    const auto [section, key] = splitName(name);
    const auto isBare = [](std::string_view part) {
        return trimmed(part) == part && !hasControlCharacter(part) &&
               part.find('\t') == std::string_view::npos;
    };
    if (key.empty() || (section.empty() && name.starts_with('.')))
        return "the name is not complete";
    if (!isBare(section) || !isBare(key) || section.find(']') != std::string_view::npos ||
        section.starts_with('.') || section.ends_with('.') || key.find('=') != std::string_view::npos ||
        key.starts_with('[') || key.starts_with('#') || key.starts_with(';'))
        return "the name has a character that a name can't have there";
    if (hasControlCharacter(value) || value.find('\t') != std::string_view::npos)
        return "the value has a control character";
    if (trimmed(value) != value)
        return "the value begins or ends with a blank, which would be lost";
    // Some room for what a person wrote around the equals sign.
    if (name.size() > 1024 || value.size() > maximumIniLine - 8192)
        return "it is too long";
    return nullptr;
}

std::string withParameter(std::string_view text, std::string_view name, std::string_view value) {
    const ParameterName wanted = splitName(name);
    const Place place = PlaceFinder(text, wanted).find();
    if (place.key)
        return withValue(text, *place.key, value);

    std::string added;
    std::size_t at = text.size();
    if (place.sectionFound) {
        at = place.sectionEnd;
    } else {
        if (place.endsWithText)
            added += place.lineEnd;
        added.append("[").append(wanted.section).append("]").append(place.lineEnd);
    }
    added.append(wanted.key).append(value.empty() ? " =" : " = ").append(value).append(place.lineEnd);

    // A last line without line end gets one, and the new last line has none: the file stays as its owner ends
    // it.
    if (at == text.size() && place.endsWithoutLineEnd) {
        added.erase(added.size() - place.lineEnd.size());
        added.insert(0, text.ends_with('\r') ? "\n" : place.lineEnd); // half of one may be there
    }
    std::string result;
    result.reserve(text.size() + added.size());
    return result.append(text.substr(0, at)).append(added).append(text.substr(at));
}

} // namespace local
