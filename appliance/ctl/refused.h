// How a command of decoderctl says no.
#pragma once

#include <stdexcept>
#include <string>

// The command was refused or failed; the text is for the person who typed it. Ends the program with status 1.
class Refused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
