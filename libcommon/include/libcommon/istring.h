// Case-insensitive strings: the type of parameter and header names.
//
// Names are compared ASCII case-insensitively; values are ordinary strings and keep their case.
// Any thread; no state.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <strings.h>

// Character traits whose every comparison ignores case. With them a string compares its first
// min(length a, length b) characters with strncasecmp; where they are equal, the shorter one orders first.
struct ci_char_traits : std::char_traits<char> {
    static bool eq(char a, char b) noexcept { return strncasecmp(&a, &b, 1) == 0; }
    static bool lt(char a, char b) noexcept { return strncasecmp(&a, &b, 1) < 0; }
    static int compare(const char* a, const char* b, std::size_t length) noexcept {
        return length == 0 ? 0 : strncasecmp(a, b, length);
    }
    static const char* find(const char* text, std::size_t length, const char& wanted) noexcept {
        const char* end = text + length;
        const char* found = std::find_if(text, end, [&](char c) { return eq(c, wanted); });
        return found == end ? nullptr : found;
    }
};

using istring = std::basic_string<char, ci_char_traits>;
