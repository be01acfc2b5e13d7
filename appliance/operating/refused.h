// The failure of something that an operator asked for.
#pragma once

#include <stdexcept>
#include <string>

// The request was refused or failed; the text says why, in one sentence for the operator.
class Refused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
