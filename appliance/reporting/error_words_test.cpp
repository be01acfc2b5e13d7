#include "appliance/reporting/error_words.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>

namespace {

TEST(ErrorWords, NoErrorHasNoWords) {
    for (const char* code : {"", "0"}) {
        EXPECT_FALSE(isError(code));
        EXPECT_EQ(errorText(code), "");
        EXPECT_EQ(errorWords(code), "");
    }
}

TEST(ErrorWords, EveryCodeOfADetectionAndOfThePlayersHasWordsOfItsOwn) {
    const std::string unknown = errorWords("77");
    for (const char* code : {"10", "11", "13", "14", "20", "23", "24", "25", "29", "30", "32"}) {
        EXPECT_NE(errorWords(code), unknown) << code;
    }
    EXPECT_EQ(errorText("32"), "error 32 (no connection to the encoder)");
}

TEST(ErrorWords, PageHasTheSameWords) {
    std::ifstream file(HOUSE_ROOT "/docs/parameters.md");
    const std::string page(std::istreambuf_iterator<char>(file), {});
    for (const char* code : {"10", "11", "13", "14", "20", "23", "24", "25", "29", "30", "32"}) {
        EXPECT_THAT(page, testing::HasSubstr("| " + std::string(code) + " | " + errorWords(code) + " |\n"));
    }
}

TEST(ErrorWords, OtherCodesAreExitStatusesOfAPlayer) {
    EXPECT_EQ(errorText("77"), "error 77 (the player ended with this exit status)");
}

TEST(ErrorWords, GarbageIsMadePrintable) {
    EXPECT_THAT(errorText("\x1b[2J"), testing::Not(testing::HasSubstr("\x1b")));
}

} // namespace
