#include "appliance/operating/typed_number.h"

#include <gtest/gtest.h>

namespace {

constexpr std::int64_t soon = 200'000;

TEST(TypedNumber, IsCompleteAtOnceAmongFewNumbers) {
    TypedNumber number;
    EXPECT_EQ(number.digit(3, 8, 0), 3);
    EXPECT_EQ(number.digit(0, 8, 1), 0);
    EXPECT_EQ(number.text(), "");
}

TEST(TypedNumber, TakesTwoDigitsThatComeQuickly) {
    TypedNumber number;
    EXPECT_EQ(number.digit(1, 13, 0), std::nullopt);
    EXPECT_EQ(number.text(), "1");
    EXPECT_EQ(number.tick(soon), std::nullopt);
    EXPECT_EQ(number.digit(2, 13, soon), 12);
}

TEST(TypedNumber, IsCompleteAfterAPause) {
    TypedNumber number;
    EXPECT_EQ(number.digit(1, 13, 0), std::nullopt);
    EXPECT_EQ(number.tick(TypedNumber::pauseUs), 1);
    EXPECT_EQ(number.tick(2 * TypedNumber::pauseUs), std::nullopt);
}

TEST(TypedNumber, DoesNotWaitForADigitThatCannotFit) {
    TypedNumber number;
    EXPECT_EQ(number.digit(5, 13, 0), 5);
    EXPECT_EQ(number.digit(2, 13, 0), 2);
}

TEST(TypedNumber, TakesALeadingZero) {
    TypedNumber number;
    EXPECT_EQ(number.digit(0, 13, 0), std::nullopt);
    EXPECT_EQ(number.digit(5, 13, soon), 5);
    EXPECT_EQ(number.digit(0, 13, 0), std::nullopt);
    EXPECT_EQ(number.tick(TypedNumber::pauseUs), 0);
}

TEST(TypedNumber, TakesThreeDigitsAmongHundreds) {
    TypedNumber number;
    EXPECT_EQ(number.digit(1, 300, 0), std::nullopt);
    EXPECT_EQ(number.digit(0, 300, 0), std::nullopt);
    EXPECT_EQ(number.digit(7, 300, 0), 107);
}

TEST(TypedNumber, PassesAWrongNumberOn) {
    TypedNumber number;
    EXPECT_EQ(number.digit(9, 0, 0), 9) << "the caller says that there is no such source";
    EXPECT_EQ(number.digit(1, 12, 0), std::nullopt);
    EXPECT_EQ(number.digit(9, 12, 0), 19);
}

} // namespace
