#include "appliance/reporting/error_words.h"

#include <libcommon/text.h>

#include <algorithm>
#include <array>

namespace {

struct ErrorWords {
    std::string_view code;
    std::string_view words;
};

// 11 comes from a detection and from a player.
constexpr std::array table{
    ErrorWords{"10", "the video output needed a reset"},
    ErrorWords{"11", "a request to the encoder failed, or the player got no first picture"},
    ErrorWords{"13", "the player could not be started"},
    ErrorWords{"14", "the encoder ended the stream"},
    ErrorWords{"20", "the encoder has no stream that can be shown"},
    ErrorWords{"23", "no new picture came for too long"},
    ErrorWords{"24", "the encoder refused the user name or password"},
    ErrorWords{"25", "the supervisor did not release the player from a barrier within 60 seconds"},
    ErrorWords{"29", "the player was killed by a signal"},
    ErrorWords{"30", "the player stopped for an unknown reason"},
    ErrorWords{"32", "no connection to the encoder"},
};

} // namespace

bool isError(std::string_view code) {
    return !code.empty() && code != "0";
}

std::string errorWords(std::string_view code) {
    if (!isError(code)) {
        return "";
    }
    const auto* const found = std::ranges::find(table, code, &ErrorWords::code);
    return found == table.end() ? "the player ended with this exit status" : std::string(found->words);
}

std::string errorText(std::string_view code) {
    return isError(code) ? "error " + libcommon::printable(code) + " (" + errorWords(code) + ')' : "";
}
