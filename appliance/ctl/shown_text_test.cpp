#include "appliance/ctl/shown_text.h"

#include "appliance/ctl/json_text.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

TEST(ShownText, PlainTextStays) {
    EXPECT_EQ(shown("T\xc3\xbcr \xf0\x9f\x8e\xa5 \"1\" \\n"), "T\xc3\xbcr \xf0\x9f\x8e\xa5 \"1\" \\n");
    EXPECT_EQ(shown(""), "");
}

TEST(ShownText, ControlCharactersDoNotReachTheTerminal) {
    const std::string text = shown("a\x1b[2Jb\nc\rd\x7f"
                                   "e\xc2\x9b"
                                   "f\x01");
    for (const char c : text) {
        EXPECT_GE(static_cast<unsigned char>(c), ' ');
        EXPECT_NE(c, '\x7f');
    }
    EXPECT_EQ(text.find("\xc2\x9b"), std::string::npos);
    EXPECT_EQ(text.substr(0, 5), "a [2J");
}

TEST(ShownText, BytesThatAreNotUtf8AreReplaced) {
    const std::string text = shown("a\xff\xc3z");
    EXPECT_EQ(text.find('\xff'), std::string::npos);
    EXPECT_EQ(text.front(), 'a');
    EXPECT_EQ(text.back(), 'z');
    EXPECT_EQ(nlohmann::json(text).dump().size(), text.size() + 2) << "valid UTF-8 needs no replacing";
}

TEST(ShownText, JsonIsAlwaysValid) {
    const std::string line = jsonLine({{"model", "a\xff\x1b[0m"}});
    EXPECT_EQ(line.find('\x1b'), std::string::npos);
    EXPECT_EQ(nlohmann::json::parse(line)["model"], "a\xef\xbf\xbd\x1b[0m");
}

} // namespace
