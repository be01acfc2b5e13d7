#include "appliance/serving/command_line.h"

#include <CLI/CLI.hpp>
#include <gmock/gmock.h>
#include <vector>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

std::optional<CommandLineEnd> read(std::vector<const char*> words, int& number) {
    CLI::App app{"Counts.", "count"};
    app.add_option("--number", number, "the number");
    words.insert(words.begin(), "path/count");
    return readCommandLine(app, "count 1.0", static_cast<int>(words.size()), words.data());
}

std::optional<CommandLineEnd> readNone(std::vector<const char*> words) {
    words.insert(words.begin(), "path/count");
    return readNoOptions("Counts.", "count 1.0", static_cast<int>(words.size()), words.data());
}

} // namespace

TEST(CommandLineEnds, NotWithGoodOptions) {
    int number = 0;
    EXPECT_FALSE(read({"--number", "7"}, number));
    EXPECT_EQ(number, 7);
    EXPECT_FALSE(readNone({}));
}

TEST(CommandLineEnds, WithTheHelp) {
    int number = 0;
    const auto end = read({"--help"}, number);
    ASSERT_TRUE(end);
    EXPECT_EQ(end->exitStatus, 0);
    EXPECT_THAT(end->message, HasSubstr("--number"));
    EXPECT_THAT(end->message, HasSubstr("--version"));
    EXPECT_EQ(readNone({"--help"})->exitStatus, 0);
    EXPECT_THAT(readNone({"--help"})->message, StartsWith("Usage: count\n\nCounts.\n\n  --help "));
}

TEST(CommandLineEnds, WithTheVersion) {
    int number = 0;
    EXPECT_EQ(read({"--version"}, number)->message, "count 1.0\n");
    EXPECT_EQ(read({"--version"}, number)->exitStatus, 0);
    EXPECT_EQ(readNone({"--version"})->message, "count 1.0\n");
    EXPECT_EQ(readNone({"--version"})->exitStatus, 0);
}

TEST(CommandLineEnds, WithTheMistake) {
    int number = 0;
    const std::vector<std::vector<const char*>> mistakes{
        {"--none"}, {"--number"}, {"--number", "x"}, {"word"}, {"-x"}};
    for (const auto& words : mistakes) {
        EXPECT_EQ(read(words, number)->exitStatus, 2) << words[0];
        EXPECT_THAT(read(words, number)->message, StartsWith("count: ")) << words[0];
        EXPECT_EQ(readNone(words)->exitStatus, 2) << words[0];
    }
    EXPECT_EQ(readNone({"--help", "--version"})->message,
              "count: there are no other options than --help and --version\n");
}
