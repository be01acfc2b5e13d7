#include "appliance/panel/web/head_check.h"

#include <algorithm>
#include <strings.h>

namespace panel {
namespace {

constexpr std::size_t mostLines = 100;
constexpr std::size_t longestTarget = 4096;
constexpr std::size_t longestMethod = 16;
constexpr std::size_t longestName = 64;
constexpr std::size_t mostLengthDigits = 9;

constexpr HeadCheck badLine{400, "The header has a line that is not allowed", 0};

bool isTokenCharacter(char character) {
    constexpr std::string_view others = "!#$%&'*+-.^_`|~";
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'z') ||
           (character >= 'A' && character <= 'Z') || others.find(character) != std::string_view::npos;
}

bool isToken(std::string_view text, std::size_t longest) {
    return !text.empty() && text.size() <= longest && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

bool isValueCharacter(char character) {
    return character == '\t' || (static_cast<unsigned char>(character) >= ' ' && character != '\x7f');
}

bool isTargetCharacter(char character) {
    return character > ' ' && character < '\x7f' && character != '#' && character != '\\' &&
           character != '"' && character != '<' && character != '>';
}

bool same(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// Takes the next line off the text, without its end.
std::string_view takeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find("\r\n"), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(text.size(), end + 2));
    return line;
}

HeadCheck checkVersion(std::string_view version) {
    if (version == "HTTP/1.1" || version == "HTTP/1.0")
        return {};
    if (version.starts_with("HTTP/"))
        return {505, "The panel understands HTTP/1.1", 0};
    return badLine;
}

HeadCheck checkRequestLine(std::string_view line) {
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == std::string_view::npos || first == last)
        return badLine;
    const std::string_view target = line.substr(first + 1, last - first - 1);
    if (target.size() > longestTarget)
        return {414, "The address is too long", 0};
    if (!isToken(line.substr(0, first), longestMethod) || !target.starts_with('/') ||
        !std::all_of(target.begin(), target.end(), isTargetCharacter))
        return badLine;
    return checkVersion(line.substr(last + 1));
}

// What the fields say about the request as a whole.
struct Fields {
    int hosts = 0;
    int lengths = 0;
    HeadCheck result;
};

void readLength(std::string_view value, std::size_t mostBodyBytes, Fields& fields) {
    const bool number = !value.empty() && value.find_first_not_of("0123456789") == std::string_view::npos;
    if (++fields.lengths > 1 || !number) {
        fields.result = {400, "The header says more than one thing about the length of the body", 0};
        return;
    }
    std::size_t length = 0;
    for (const char digit : value.substr(0, mostLengthDigits))
        length = length * 10 + static_cast<std::size_t>(digit - '0');
    if (value.size() > mostLengthDigits || length > mostBodyBytes)
        fields.result = {413, "The body is too long", 0};
    else
        fields.result.bodyBytes = length;
}

void readField(std::string_view line, std::size_t mostBodyBytes, Fields& fields) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || !isToken(line.substr(0, colon), longestName) ||
        !std::all_of(line.begin(), line.end(), isValueCharacter)) {
        fields.result = badLine;
        return;
    }
    const std::string_view name = line.substr(0, colon);
    std::string_view value = line.substr(colon + 1);
    value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
    value = value.substr(0, value.find_last_not_of(" \t") + 1);
    if (same(name, "Host") && ++fields.hosts > 1)
        fields.result = badLine;
    else if (same(name, "Content-Length"))
        readLength(value, mostBodyBytes, fields);
    else if (same(name, "Transfer-Encoding"))
        fields.result = {501, "The panel takes bodies with a Content-Length only", 0};
    else if (same(name, "Expect"))
        fields.result = {417, "The panel does not take the header Expect", 0};
}

} // namespace

std::size_t headLength(std::string_view received, std::size_t from, bool& bad) {
    for (std::size_t at = from; at < received.size(); ++at) {
        const char character = received[at];
        const bool afterReturn = at > 0 && received[at - 1] == '\r';
        if (character == '\0' || (character == '\n') != afterReturn) {
            bad = true; // a carriage return or a line feed is alone, or there is a zero
            return 0;
        }
        if (character == '\n' && (at == 1 || (at >= 3 && received[at - 2] == '\n')))
            return at + 1;
    }
    return 0;
}

HeadCheck checkHead(std::string_view head, std::size_t mostBodyBytes) {
    if (const HeadCheck line = checkRequestLine(takeLine(head)); line.status != 0)
        return line;
    Fields fields;
    std::size_t lines = 0;
    for (std::string_view line = takeLine(head); !line.empty(); line = takeLine(head)) {
        if (++lines > mostLines)
            return {431, "The header has too many lines", 0};
        readField(line, mostBodyBytes, fields);
        if (fields.result.status != 0)
            return fields.result;
    }
    if (fields.hosts == 0)
        return {400, "The header Host is missing", 0};
    return fields.result;
}

} // namespace panel
