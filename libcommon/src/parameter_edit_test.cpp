#include "libcommon/src/parameter_edit.h"

#include "libcommon/src/parameter_snapshot.h"

#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using local::whyNotWritable;
using local::withParameter;

struct Case {
    const char* title;
    std::string before;
    const char* name;
    const char* value;
    std::string after;
};

TEST(ParameterEdit, ChangesWhatIsAskedAndNothingElse) {
    const std::vector<Case> cases = {
        {"a value in its place", "[A]\nx = 1\ny = 2\n", "A.x", "5", "[A]\nx = 5\ny = 2\n"},
        {"a longer value", "[A]\nx=1\n", "A.x", "one two", "[A]\nx=one two\n"},
        {"blanks around it stay", "[A]\n\t x \t=  1 \t\n", "A.x", "2", "[A]\n\t x \t=  2 \t\n"},
        {"the name's case in the file stays", "[a]\nKEY = 1\n", "A.key", "2", "[a]\nKEY = 2\n"},
        {"a value with what looks like comments", "[A]\nx = a#b;c\n", "A.x", "#;", "[A]\nx = #;\n"},
        {"an empty value gets one", "[A]\nx =\ny=\nz = \n", "A.x", "1", "[A]\nx = 1\ny=\nz = \n"},
        {"an empty value without blanks", "[A]\nx=\n", "A.x", "1", "[A]\nx=1\n"},
        {"an empty value after a blank", "[A]\nx = \n", "A.x", "1", "[A]\nx = 1\n"},
        {"an empty value at the very end", "[A]\nx =", "A.x", "1", "[A]\nx = 1"},
        {"a value becomes empty", "[A]\nx = 1\n", "A.x", "", "[A]\nx = \n"},
        {"CRLF", "[A]\r\nx = 1\r\ny = 2\r\n", "A.x", "3", "[A]\r\nx = 3\r\ny = 2\r\n"},
        {"a new key with CRLF", "[A]\r\nx = 1\r\n", "A.y", "2", "[A]\r\nx = 1\r\ny = 2\r\n"},
        {"a new section with CRLF", "[A]\r\nx = 1\r\n", "B.y", "2", "[A]\r\nx = 1\r\n\r\n[B]\r\ny = 2\r\n"},
        {"no line end at the end", "[A]\nx = 1", "A.x", "2", "[A]\nx = 2"},
        {"a new key without one", "[A]\nx = 1", "A.y", "2", "[A]\nx = 1\ny = 2"},
        {"a new key after half a line end", "[A]\r\nx = 1\r", "A.y", "2", "[A]\r\nx = 1\r\ny = 2"},
        {"a new section without one", "[A]\nx = 1", "B.y", "2", "[A]\nx = 1\n\n[B]\ny = 2"},
        {"below a section line without one", "[A]", "A.x", "1", "[A]\nx = 1"},
        {"a byte order mark", "\xef\xbb\xbf[A]\nx = 1\n", "A.x", "2", "\xef\xbb\xbf[A]\nx = 2\n"},
        {"a byte order mark alone", "\xef\xbb\xbf", "x", "2", "\xef\xbb\xbfx = 2\n"},
        {"an empty file", "", "A.B.x", "1", "[A.B]\nx = 1\n"},
        {"an empty value into an empty file", "", "A.x", "", "[A]\nx =\n"},
        {"the end of the section", "[A]\nx = 1\n\n[B]\n", "A.y", "2", "[A]\nx = 1\ny = 2\n\n[B]\n"},
        {"before all blank lines", "[A]\nx = 1\n\n \n\n[B]\n", "A.y", "2", "[A]\nx = 1\ny = 2\n\n \n\n[B]\n"},
        {"before blank lines at the end", "[A]\nx = 1\n\n\n", "A.y", "2", "[A]\nx = 1\ny = 2\n\n\n"},
        {"after a comment of its own", "[A]\nx = 1\n# z\n[B]\n", "A.y", "2", "[A]\nx = 1\n# z\ny = 2\n[B]\n"},
        {"before the next section's comment", "[A]\nx = 1\n\n# about B\n[B]\n", "A.y", "2",
         "[A]\nx = 1\ny = 2\n\n# about B\n[B]\n"},
        {"after a comment at the end of the file", "[A]\nx = 1\n\n# z\n", "A.y", "2",
         "[A]\nx = 1\n\n# z\ny = 2\n"},
        {"a section with nothing in it", "[A]\n[B]\n", "A.y", "2", "[A]\ny = 2\n[B]\n"},
        {"a new section at the end", "[A]\nx = 1\n", "B.y", "2", "[A]\nx = 1\n\n[B]\ny = 2\n"},
        {"after a blank line that is there", "[A]\nx = 1\n\n", "B.y", "2", "[A]\nx = 1\n\n[B]\ny = 2\n"},
        {"the value that holds, of two", "[A]\nx = 1\nx = 2\n", "A.x", "3", "[A]\nx = 1\nx = 3\n"},
        {"of two sections", "[A]\nx = 1\n[B]\n[a]\nX = 2\n", "A.x", "3", "[A]\nx = 1\n[B]\n[a]\nX = 3\n"},
        {"a key that only the first has", "[A]\nx = 1\n[B]\n[A]\ny = 2\n", "A.x", "3",
         "[A]\nx = 3\n[B]\n[A]\ny = 2\n"},
        {"a new key goes to the last", "[A]\nx = 1\n[B]\n[A]\ny = 2\n", "A.z", "3",
         "[A]\nx = 1\n[B]\n[A]\ny = 2\nz = 3\n"},
        {"what can't be read stays", "junk\n[A]\nno\n= 3\nx = 1\n[B\ny = 1\n", "A.x", "2",
         "junk\n[A]\nno\n= 3\nx = 2\n[B\ny = 1\n"},
        {"a section line that can't be read ends one", "[A]\nx = 1\n[B\ny = 1\n", "A.y", "2",
         "[A]\nx = 1\ny = 2\n[B\ny = 1\n"},
        {"NUL bytes stay", std::string("[A]\n\0\0\nx = 1\n", 13), "A.x", "2",
         std::string("[A]\n\0\0\nx = 2\n", 13)},
        {"the section is all before the last dot", "[Network]\n[Network.eth0]\n", "Network.eth0.IPAddress",
         "1.2.3.4", "[Network]\n[Network.eth0]\nIPAddress = 1.2.3.4\n"},
        {"a name without a section", "# c\n\n[A]\n", "x", "1", "# c\nx = 1\n\n[A]\n"},
        {"the same in a file without sections", "y = 1\n", "x", "1", "y = 1\nx = 1\n"},
        {"the same before the first section", "[A]\ny = 1\n", "x", "1", "x = 1\n[A]\ny = 1\n"},
    };
    for (const Case& one : cases)
        EXPECT_EQ(withParameter(one.before, one.name, one.value), one.after) << one.title;
}

TEST(ParameterEdit, RefusesNamesThatCantBeReadBack) {
    for (const char* name :
         {"",     "A.",   ".x",   ".",    "A..",   "..x",   "A.#x",  "A.;x",    "A.[x", "A.x=y", "A] .x",
          " A.x", "A .x", "A.x ", "A. x", "A\n.x", "A.x\n", "A.\tx", "A\x7f.x", "#x",   "[A]",   ".A.x"})
        EXPECT_NE(whyNotWritable(name, "1"), nullptr) << '"' << name << '"';
    EXPECT_NE(whyNotWritable(std::string("A.x\0y", 5), "1"), nullptr);
    EXPECT_NE(whyNotWritable("A." + std::string(2000, 'x'), "1"), nullptr);
    for (const char* name :
         {"x", "A.x", "A.B.x", "A b.x y", "A#.x", "Encoder.10.0.0.1.Address", "\xc3\xa4.\xc3\xb6"})
        EXPECT_EQ(whyNotWritable(name, "1"), nullptr) << name;
}

TEST(ParameterEdit, RefusesValuesThatCantBeReadBack) {
    for (const char* value :
         {" 1", "1 ", "\t1", "1\t", "a\tb", "a\nb", "a\n[B]\nx = 2", "\r", "\x1b[1m", "\x7f", " "})
        EXPECT_NE(whyNotWritable("A.x", value), nullptr) << '"' << value << '"';
    EXPECT_NE(whyNotWritable("A.x", std::string("1\0002", 3)), nullptr);
    EXPECT_NE(whyNotWritable("A.x", std::string(70000, 'x')), nullptr);
    for (const char* value :
         {"", "1", "a b", "=", "==", "[B]", "# no comment", "; neither", "\xc3\xa4", "\xff"})
        EXPECT_EQ(whyNotWritable("A.x", value), nullptr) << '"' << value << '"';
}

// Lines of all kinds in any order, good and bad.
std::string anyText(std::mt19937& random) {
    static const std::vector<std::string> pieces = {
        "[A]",   "[B]",     "[a] # c",  "[A.B]", "[",     "[]",      "[A",   "x=1",
        "x = 2", " X\t=3 ", "y=",       "y =",   "z= ",   "=",       "= 4",  "junk",
        "# c",   ";",       "",         " ",     "\t",    "x.y = 5", "[B]x", "x = #5",
        "\x01",  "x=\x02",  "\xff\xfe", "[A]]",  "y=[A]", "\r",      "x\r",  "[[A]]"};
    std::string text = random() % 8 == 0 ? "\xef\xbb\xbf" : "";
    const std::size_t lines = random() % 12;
    for (std::size_t i = 0; i < lines; ++i) {
        text += pieces[random() % pieces.size()];
        if (i + 1 < lines || random() % 3 != 0)
            text += random() % 4 == 0 ? "\r\n" : "\n";
    }
    if (random() % 10 == 0)
        text += '\0';
    return text;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text.starts_with(local::byteOrderMark) ? text.substr(3) : text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line.ends_with('\r') ? line.substr(0, line.size() - 1) : line);
    return lines;
}

// At most one line changed, or up to three were added in one place; all other lines are the same.
bool isOneEdit(const std::vector<std::string>& before, const std::vector<std::string>& after) {
    std::size_t head = 0;
    while (head < before.size() && head < after.size() && before[head] == after[head])
        ++head;
    std::size_t tail = 0;
    while (tail + head < before.size() && tail + head < after.size() &&
           before[before.size() - 1 - tail] == after[after.size() - 1 - tail])
        ++tail;
    const std::size_t changed = before.size() - head - tail;
    const std::size_t added = after.size() - before.size();
    return (added == 0 && changed <= 1) || (changed == 0 && added >= 1 && added <= 3);
}

// All values but that of `name`: "SECTION" and "KEY" in the spelling of their first lines.
std::map<std::pair<istring, istring>, std::string> valuesBeside(std::string_view name,
                                                                const ParameterSnapshot& snapshot) {
    std::map<std::pair<istring, istring>, std::string> values;
    for (const ParameterSnapshot::Section& section : snapshot.sections)
        for (auto at = section.first; at != ParameterSnapshot::none; at = snapshot.values[at].next) {
            const ParameterSnapshot::Value& line = snapshot.values[at];
            if (!local::NameEqual{}(local::ParameterName{section.name, line.key}, local::splitName(name)))
                values[{istring(section.name.data(), section.name.size()),
                        istring(line.key.data(), line.key.size())}] = line.value;
        }
    return values;
}

TEST(ParameterEdit, WhateverTheFileTheValueReadsBackAndTheRestIsAsItWas) {
    std::mt19937 random(4711); // NOLINT: the same texts each time
    const std::vector<std::string> names = {"A.x", "a.Y", "A.B.x", "B.z", "x", "Y", "C.D.E.x", "B.x"};
    const std::vector<std::string> values = {"", "1", "a b", "#", "[A]", "="};
    for (int round = 0; round < 20000; ++round) {
        const std::string before = anyText(random);
        const std::string& name = names[random() % names.size()];
        const std::string& value = values[random() % values.size()];
        const std::string after = withParameter(before, name, value);

        ParameterSnapshot was;
        ParameterSnapshot is;
        local::parse(before, was);
        local::parse(after, is);
        ASSERT_EQ(is.value(name), value) << before << "\n---\n" << after;
        ASSERT_TRUE(isOneEdit(linesOf(before), linesOf(after))) << before << "\n---\n" << after;
        ASSERT_EQ(valuesBeside(name, is), valuesBeside(name, was)) << before << "\n---\n" << after;
        if (!linesOf(before).empty() && before.back() != '\n') {
            ASSERT_NE(after.back(), '\n') << before << "\n---\n" << after;
        }
    }
}

} // namespace
