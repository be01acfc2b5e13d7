// The sections of sources in the text of a parameter file: removing, renaming and ordering them. Pure, no files.
//
// A section goes from its section line, with the comment lines right above it, to the next one. Everything else stays byte
// for byte.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The NAMEs of all sections [Encoder.NAME], as they are written, each once, in file order.
std::vector<std::string> sourceSectionNames(std::string_view text);

// Why a source can't have this name; "" when it can.
std::string whyNotSourceName(std::string_view name);

// Without the section of that source (all of them, when it comes twice). Names ignore case.
std::string withoutSource(std::string_view text, std::string_view name);

// With another name for a section.
std::string withSourceRenamed(std::string_view text, std::string_view name, std::string_view newName);

// With the sections in the order of `names`, which has each name once. They take the places of the present ones.
std::string withSourcesOrdered(std::string_view text, const std::vector<std::string>& names);

// With a new section at the end, with these lines (without line ends).
std::string withSource(std::string_view text, std::string_view name, const std::vector<std::string>& lines);
