// What the test of this folder changes. Each function but the last is tested whole.
#include "tests/mutation/example.h"

namespace example {
namespace {

constexpr int limit = 10;
int calls = 0;

void count() {
    ++calls;
}

} // namespace

int counted() {
    return calls;
}

bool isSmall(int number) {
    return number >= 0 && number < limit;
}

int sum(const std::vector<int>& numbers) {
    int result = 0;
    for (const int number : numbers)
        result += number;
    count();
    return result;
}

Colour next(Colour colour) {
    switch (colour) {
    case Colour::red:
        return Colour::green;
    case Colour::green:
        return Colour::blue;
    default:
        break;
    }
    return Colour::red;
}

std::string name(const std::string& given) {
    if (given.empty() || given == "?")
        return "nobody";
    return given;
}

bool isOpen(bool locked) {
    return !locked;
}

int untested(int number) {
    return number * 2;
}

} // namespace example
