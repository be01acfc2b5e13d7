// What a changed source calls: exactly one change is active, the one whose number is in the environment variable MUTANT.
// Without the variable the program is as it was.
#pragma once

#include <cstdlib>

namespace mutation {

inline const int active = [] {
    const char* const number = std::getenv("MUTANT");
    return number == nullptr ? 0 : std::atoi(number);
}();

inline bool on(int number) {
    return active == number;
}

template<class Value>
Value more(int number, Value value) {
    return on(number) ? static_cast<Value>(value + 1) : value;
}

template<class Value>
Value other(int number, Value value, Value instead) {
    return on(number) ? instead : value;
}

#define MUTATION_OF(name, was, becomes)                                                                      \
    template<class Left, class Right>                                                                        \
    auto name(int number, const Left& left, const Right& right) {                                            \
        return on(number) ? left becomes right : left was right;                                             \
    }
MUTATION_OF(equal, ==, !=)
MUTATION_OF(unequal, !=, ==)
MUTATION_OF(less, <, <=)
MUTATION_OF(more_than, >, >=)
MUTATION_OF(at_most, <=, <)
MUTATION_OF(at_least, >=, >)
MUTATION_OF(plus, +, -)
MUTATION_OF(minus, -, +)
MUTATION_OF(times, *, +)
MUTATION_OF(divided, /, *)
MUTATION_OF(rest, %, +)
MUTATION_OF(both_bits, &, |)
MUTATION_OF(any_bit, |, &)
MUTATION_OF(one_bit, ^, |)
MUTATION_OF(shifted_left, <<, >>)
MUTATION_OF(shifted_right, >>, <<)
#undef MUTATION_OF

} // namespace mutation
