#include "appliance/serving/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    const char small = lower(c);
    return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

} // namespace

bool equalIgnoringCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

std::string_view trimmed(std::string_view text) {
    const std::size_t start = text.find_first_not_of(" \t");
    if (start == std::string_view::npos)
        return {};
    return text.substr(start, text.find_last_not_of(" \t") - start + 1);
}

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 &&
            hexDigit(text[i + 2]) >= 0) {
            decoded += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

std::optional<int> wholeNumber(std::string_view text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || text.size() > 9 || text.front() == '-' || error != std::errc{} ||
        end != text.data() + text.size())
        return std::nullopt;
    return number;
}

std::string jsonText(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (c >= ' ' && c < 0x7f) {
            quoted += c;
        } else {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned char>(c));
            quoted += escape.data();
        }
    }
    return quoted + "\"";
}
