#include "libcommon/src/utf8.h"

#include <libcommon/text.h>

#include <gtest/gtest.h>

namespace {

using local::cleanText;
using local::cutLength;

TEST(Utf8, CutsBetweenCharacters) {
    EXPECT_EQ(cutLength("abc", 3), 3U);
    EXPECT_EQ(cutLength("abc", 2), 2U);
    EXPECT_EQ(cutLength("", 0), 0U);
    EXPECT_EQ(cutLength("a\xc3\xa4", 2), 1U);
    EXPECT_EQ(cutLength("\xe2\x82\xac", 2), 0U);
    EXPECT_EQ(cutLength("a\xf0\x9f\x98\x80z", 4), 1U);
    EXPECT_EQ(cutLength("a\xf0\x9f\x98\x80z", 5), 5U);
}

TEST(Utf8, CutsInvalidTextAnywhere) {
    EXPECT_EQ(cutLength("\x80\x80\x80\x80\x80\x80\x80", 6), 6U);
    EXPECT_EQ(cutLength("\x80\x80", 1), 1U);
}

TEST(Utf8, CleansWhatWouldHarmAScreen) {
    EXPECT_EQ(cleanText("G\xc3\xa4te 1", 100), "G\xc3\xa4te 1");
    EXPECT_EQ(cleanText("a\nb\tc\x1b[1m\x7f", 100), "a b c [1m ");
    EXPECT_EQ(cleanText("a\xc2\x85z", 100), "a z");
    EXPECT_EQ(cleanText("\xff\xc3(\xe2\x82", 100), "?"
                                                   "?(?"
                                                   "?");
    EXPECT_EQ(cleanText("\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80\xe0\x80\x80\xf0\x80\x80\x80", 100),
              "????????????????");
    EXPECT_EQ(cleanText("\xf0\x9f\x98\x80", 100), "\xf0\x9f\x98\x80");
    EXPECT_EQ(cleanText({"a\0b", 3}, 100), "a b");
}

TEST(Utf8, CleanTextNeverExceedsTheMaximum) {
    EXPECT_EQ(cleanText("\xc3\xa4\xc3\xa4", 3), "\xc3\xa4");
    EXPECT_EQ(cleanText("abcd", 3), "abc");
    EXPECT_EQ(cleanText("abcd", 0), "");
}

TEST(Utf8, PrintableTextHasNoLimit) {
    EXPECT_EQ(libcommon::printable(""), "");
    EXPECT_EQ(libcommon::printable("G\xc3\xa4te \"1\""), "G\xc3\xa4te \"1\"");
    EXPECT_EQ(libcommon::printable("\x1b[31mred\r\n\xff"), " [31mred  ?");
    EXPECT_EQ(libcommon::printable(std::string(100000, 'x')).size(), 100000U);
}

TEST(Utf8, TrimmedTextIsAViewIntoTheOriginal) {
    EXPECT_EQ(libcommon::trimmed(" \ta b\t "), "a b");
    EXPECT_EQ(libcommon::trimmed("a"), "a");
    EXPECT_EQ(libcommon::trimmed("a\n"), "a\n");
    const std::string_view blank = " \t ";
    EXPECT_EQ(libcommon::trimmed(blank), "");
    EXPECT_EQ(libcommon::trimmed(blank).data(), blank.data());
    EXPECT_EQ(libcommon::trimmed(""), "");
}

} // namespace
