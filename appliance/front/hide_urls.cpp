// What decoderctl's front hides: user name, password and passphrase in URLs, and the value for a parameter that is a password.
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

// The value of an SRT stream's "passphrase" among the options of its URL.
void hideOption(char* argument) {
    constexpr const char* name = "passphrase=";
    for (char* at = argument; (at = std::strstr(at, name)) != nullptr;) {
        at += std::strlen(name);
        std::memset(at, '*', std::strcspn(at, "&#"));
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
        hideOption(argv[i]);
        if (i > 1 && namesPassword(argv[i - 1]))
            std::memset(argv[i], '*', std::strlen(argv[i]));
    }
}

const bool endsWithItsStarter = false;
const int cannotStart = 1;

} // namespace front
