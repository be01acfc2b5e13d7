// A number that an operator types digit by digit.
//
// It is complete when a further digit would pass the largest number, or a moment after the last digit. So "1" is
// number 1 at once where there are fewer than ten numbers; where there are 13, "1" waits for a second digit and "5"
// does not. Pure: the caller passes the time. One thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

class TypedNumber {
public:
    static constexpr std::int64_t pauseUs = 900'000; // after this time without a digit the number is complete

    // A digit (0 to 9) was typed, at that time on gettimeusec()'s clock. `count` numbers, from 0 on, can be meant.
    // Returns the number when it is complete now.
    std::optional<int> digit(int value, int count, std::int64_t now);

    // Returns the number when the pause has completed it.
    std::optional<int> tick(std::int64_t now);

    // What was typed so far; "" when nothing waits.
    const std::string& text() const { return text_; }
    void clear() { text_.clear(); }

private:
    std::optional<int> take();

    std::string text_;
    std::int64_t last_ = 0;
};
