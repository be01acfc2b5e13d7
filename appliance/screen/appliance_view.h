// What the screen needs to know of its appliance: texts, parameters, sources.
//
// Every call looks at the files, as far as they changed. For one thread at a time.
#pragma once

#include "appliance/screen/text_layers.h"

#include <cstdint>
#include <string>
#include <vector>

namespace screen {

class ApplianceView {
public:
    ScreenText texts() const;
    std::int64_t blankTime() const; // of the last osdBlank(), gettimeusec()'s clock; 0: never

    // Values of parameter files 0 and 1; "" when missing.
    std::string parameter(const char* name) const;
    std::string information(const char* name) const;

    // A status value of a source; "" when it was never set.
    std::string status(int source, const char* key) const;

    // The names of the sources in index order: of those that the decoder read when it connected, because the numbers of
    // its sources are places in that list; without a connect, of those that are configured.
    std::vector<std::string> sourceNames() const;
};

} // namespace screen
