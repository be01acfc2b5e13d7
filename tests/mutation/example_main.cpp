// The tests of the example: exit status 0 if all hold.
#include "tests/mutation/example.h"

#include <cstdio>

namespace {

int failures = 0;

void expect(bool holds, const char* what) {
    if (holds)
        return;
    std::printf("not so: %s\n", what);
    ++failures;
}

} // namespace

int main() {
    using namespace example;
    expect(isSmall(0) && isSmall(9) && !isSmall(10) && !isSmall(-1) && isSmall(5), "isSmall");
    expect(counted() == 0 && sum({1, 2, 3}) == 6 && counted() == 1, "sum");
    expect(next(Colour::red) == Colour::green && next(Colour::green) == Colour::blue &&
               next(Colour::blue) == Colour::red,
           "next");
    expect(name("") == "nobody" && name("?") == "nobody" && name("Anna") == "Anna", "name");
    expect(isOpen(false) && !isOpen(true), "isOpen");
    untested(1);
    return failures == 0 ? 0 : 1;
}
