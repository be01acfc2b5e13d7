// Finding the source that somebody names.
#pragma once

#include <string>

namespace mqtt {

struct ChosenSource {
    int index = -1;
    std::string name;
};

// By number, name, or beginning of the name. Throws Refused with a list of the sources when none or more than one fits.
ChosenSource chooseSource(const std::string& wanted);

} // namespace mqtt
