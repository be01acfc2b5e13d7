// The failure of a command of decoderctl.
#pragma once

#include <stdexcept>
#include <string>

// The command was refused or failed; the text says why. It ends the program with status 1.
class Refused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
