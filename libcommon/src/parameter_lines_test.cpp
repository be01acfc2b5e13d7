#include <libcommon/parameter_lines.h>

#include <gtest/gtest.h>

namespace {

using libcommon::ParameterLine;
using libcommon::parameterLines;

TEST(ParameterLines, EveryLineHasItsKindAndPlace) {
    const std::vector<ParameterLine> lines =
        parameterLines("# c\n[A]\nx = 1\nno\n[B\ny = 2\n[Encoder.Front door] # c\n y =\t2 \r\n");
    ASSERT_EQ(lines.size(), 8U);
    EXPECT_EQ(lines[0].kind, ParameterLine::Kind::Blank);
    EXPECT_EQ(lines[1].kind, ParameterLine::Kind::Section);
    EXPECT_EQ(lines[2].kind, ParameterLine::Kind::Key);
    EXPECT_EQ(lines[2].section + '.' + lines[2].key + '=' + lines[2].value, "A.x=1");
    EXPECT_EQ(lines[3].kind, ParameterLine::Kind::Unreadable);
    EXPECT_EQ(lines[3].reason, "no '='");
    EXPECT_EQ(lines[4].reason, "a section line without ']'");
    EXPECT_EQ(lines[5].kind, ParameterLine::Kind::Unreadable);
    EXPECT_EQ(lines[5].reason, "it is below a section line that can't be read");
    EXPECT_EQ(lines[6].section, "Encoder.Front door");
    EXPECT_EQ(lines[7].number, 8U);
    EXPECT_EQ(lines[7].value, "2");
    EXPECT_TRUE(parameterLines("").empty());
}

} // namespace
