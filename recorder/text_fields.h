// Words of a line: how texts and numbers are written into the recorder's lines, and read again.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace recorder {

// Appends a blank and the text as one word: a blank is "\s", the empty text "\e", a backslash "\\", another byte that can't
// be printed "\xHH".
void appendText(std::string& line, std::string_view text);
void appendNumber(std::string& line, std::int64_t number);

// Takes the next word off the front of the line. False at the line's end, and for a word that is no such text or number.
bool takeText(std::string_view& line, std::string& text);
bool takeNumber(std::string_view& line, std::int64_t& number);

// Takes the next word as it is; empty at the line's end.
std::string_view takeWord(std::string_view& line);

} // namespace recorder
