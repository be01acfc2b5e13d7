#include "appliance/operating/quoted_text.h"

#include "appliance/reporting/json_text.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

TEST(QuotedText, PlainTextIsUnchanged) {
    EXPECT_EQ(inQuotes("T\xc3\xbcr \xf0\x9f\x8e\xa5 \\n"), "\"T\xc3\xbcr \xf0\x9f\x8e\xa5 \\n\"");
    EXPECT_EQ(inQuotes(""), "\"\"");
}

TEST(QuotedText, ControlCharactersAndBadBytesDoNotReachTheTerminal) {
    EXPECT_EQ(inQuotes("a\x1b[2Jb\nc\xff"), "\"a [2Jb c?\"");
}

TEST(JsonText, JsonIsAlwaysValid) {
    const std::string line = jsonLine({{"model", "a\xff\x1b[0m"}});
    EXPECT_EQ(line.find('\x1b'), std::string::npos);
    EXPECT_EQ(nlohmann::json::parse(line)["model"], "a\xef\xbf\xbd\x1b[0m");
}

} // namespace
