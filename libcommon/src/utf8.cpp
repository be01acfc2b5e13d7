#include "libcommon/src/utf8.h"

#include <libcommon/text.h>

#include <algorithm>

namespace local {

namespace {

bool continues(char byte) {
    return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U;
}

// Bytes of the UTF-8 character at the start of `text`; 0 when there is none. Overlong forms, surrogates and
// what lies beyond U+10FFFF are none.
std::size_t characterLength(std::string_view text) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned first = byte(0);
    if (first < 0x80)
        return 1;
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < length)
        return 0;
    for (std::size_t at = 1; at < length; ++at)
        if (!continues(text[at]))
            return 0;
    const unsigned second = byte(1);
    if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second >= 0xa0) ||
        (first == 0xf0 && second < 0x90) || (first == 0xf4 && second >= 0x90))
        return 0;
    return length;
}

bool isControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    return first < 0x20 || first == 0x7f ||
           (first == 0xc2 && static_cast<unsigned char>(character[1]) < 0xa0); // U+0080 to U+009F
}

} // namespace

std::size_t cutLength(std::string_view text, std::size_t maximum) {
    if (text.size() <= maximum)
        return text.size();
    // No character is longer than four bytes; a longer row of continuation bytes is no text at all.
    for (std::size_t back = 0; back < 4 && back <= maximum; ++back)
        if (!continues(text[maximum - back]))
            return maximum - back;
    return maximum;
}

std::string cleanText(std::string_view text, std::size_t maximum) {
    std::string clean;
    clean.reserve(std::min(text.size(), maximum));
    while (!text.empty() && clean.size() < maximum) {
        const std::size_t length = characterLength(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
        text.remove_prefix(character.size());
        if (length == 0)
            clean += '?';
        else if (isControl(character))
            clean += ' ';
        else if (clean.size() + length <= maximum)
            clean += character;
        else
            break;
    }
    return clean;
}

} // namespace local

namespace libcommon {

std::string printable(std::string_view text) {
    return local::cleanText(text, std::string::npos);
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos ? text.substr(0, 0)
                                           : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace libcommon
