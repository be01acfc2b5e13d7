// What decoderctl's front hides: user name and password in URLs, and the value for a parameter that is a password.
#include "appliance/front/hiding.h"

#include <cstring>
#include <string_view>
#include <strings.h>

namespace front {
namespace {

// From "://" up to the last @ before the path. A password may have an @ of its own.
void hideInUrl(char* argument) {
    char* start = std::strstr(argument, "://");
    if (start == nullptr)
        return;
    start += 3;
    const std::size_t length = std::strcspn(start, "/?#");
    for (std::size_t i = length; i > 0; --i) {
        if (start[i - 1] != '@')
            continue;
        std::memset(start, '*', i - 1);
        return;
    }
}

bool namesPassword(std::string_view argument) {
    constexpr std::string_view end = ".password";
    return argument.size() > end.size() &&
           strncasecmp(argument.data() + argument.size() - end.size(), end.data(), end.size()) == 0;
}

} // namespace

void hideSecrets(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        hideInUrl(argv[i]);
        if (i > 1 && namesPassword(argv[i - 1]))
            std::memset(argv[i], '*', std::strlen(argv[i]));
    }
}

const bool endsWithItsStarter = false;
const int cannotStart = 1;

} // namespace front
