// Whether a parameter takes a value, and what to do when it does not.
#pragma once

#include "appliance/settings/known_parameters.h"

#include <optional>
#include <string>
#include <string_view>

struct Mistake {
    std::string reason; // to follow the parameter's name: takes yes or no, not "Yes"
    std::string remedy; // write "yes"; "" when there is nothing to add
};

// Nothing when the parameter takes the value. The empty value, which clears a parameter, is always accepted.
std::optional<Mistake> valueMistake(const KnownParameter& parameter, std::string_view value);
