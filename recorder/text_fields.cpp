#include "recorder/text_fields.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace recorder {
namespace {

constexpr char digits[] = "0123456789abcdef";

bool isPlain(char c) {
    return static_cast<unsigned char>(c) > 0x20 && c != 0x7f && c != '\\';
}

void appendEscaped(std::string& line, char c) {
    line += '\\';
    if (c == ' ') {
        line += 's';
    } else if (c == '\\') {
        line += '\\';
    } else {
        const auto byte = static_cast<unsigned char>(c);
        line += 'x';
        line += digits[byte >> 4U];
        line += digits[byte & 15U];
    }
}

int valueOf(char digit) {
    const std::string_view all(digits, 16);
    const std::size_t found = all.find(digit);
    return found == std::string_view::npos ? -1 : static_cast<int>(found);
}

// The character behind a backslash, which is taken off the front.
std::optional<char> takeEscaped(std::string_view& word) {
    if (word.empty())
        return std::nullopt;
    const char kind = word.front();
    word.remove_prefix(1);
    if (kind == 's')
        return ' ';
    if (kind == '\\')
        return '\\';
    if (kind != 'x' || word.size() < 2)
        return std::nullopt;
    const int high = valueOf(word[0]);
    const int low = valueOf(word[1]);
    word.remove_prefix(2);
    return high < 0 || low < 0 ? std::nullopt : std::optional(static_cast<char>(high * 16 + low));
}

} // namespace

void appendText(std::string& line, std::string_view text) {
    line += ' ';
    if (text.empty())
        line += "\\e";
    else if (std::ranges::all_of(text, isPlain))
        line += text;
    else
        for (const char c : text)
            if (isPlain(c))
                line += c;
            else
                appendEscaped(line, c);
}

void appendNumber(std::string& line, std::int64_t number) {
    char text[24];
    const auto end = std::to_chars(text, text + sizeof text, number).ptr;
    line += ' ';
    line.append(text, end);
}

std::string_view takeWord(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    const std::string_view word = line.substr(0, line.find(' '));
    line.remove_prefix(word.size());
    return word;
}

bool takeText(std::string_view& line, std::string& text) {
    std::string_view word = takeWord(line);
    text.clear();
    if (word == "\\e")
        return true;
    if (word.empty())
        return false;
    while (!word.empty()) {
        const char c = word.front();
        word.remove_prefix(1);
        if (c != '\\') {
            text += c;
            continue;
        }
        const std::optional<char> escaped = takeEscaped(word);
        if (!escaped)
            return false;
        text += *escaped;
    }
    return true;
}

bool takeNumber(std::string_view& line, std::int64_t& number) {
    const std::string_view word = takeWord(line);
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    return !word.empty() && error == std::errc() && end == word.data() + word.size();
}

} // namespace recorder
