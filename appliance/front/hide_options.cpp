// What a player's front hides: the values of the options with user name and password.
#include "appliance/front/hiding.h"
#include "appliance/front/option_letters.h"

#include <cstring>
#include <string_view>

namespace front {
namespace {

void hide(char* secret) {
    const std::size_t length = std::strlen(secret);
    std::memset(secret, 0, length);
    if (length > 0)
        secret[0] = '*';
}

bool contains(std::string_view letters, char letter) {
    return letters.find(letter) != std::string_view::npos;
}

// Hides the secrets in one argument. Returns true when the value of its last letter is the next argument;
// `secret` is then set to whether that must be hidden.
bool hideInside(char* argument, bool& secret) {
    for (char* letter = argument + 1; *letter != '\0'; ++letter) {
        if (!contains(lettersWithValue, *letter))
            continue;
        secret = contains(secretLetters, *letter);
        if (letter[1] == '\0')
            return true;
        if (secret)
            hide(letter + 1);
        return false;
    }
    return false;
}

} // namespace

void hideSecrets(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] != '-' || argv[i][1] == '-')
            continue;
        bool secret = false;
        if (hideInside(argv[i], secret) && ++i < argc && secret)
            hide(argv[i]);
    }
}

const bool endsWithItsStarter = true;
const int cannotStart = 13; // as when the supervisor itself can't execute a player

} // namespace front
