#include "appliance/settings/address_check.h"

#include <libcommon/network.h>

namespace {

// Why the address is refused, or "".
std::string libraryReason(std::string_view address) {
    return libcommon::whyNotAddress(std::string(address));
}

// The address without scheme, credentials and path; "" when the rest is not an address either.
std::string essence(std::string_view text) {
    if (const std::size_t scheme = text.find("://"); scheme != std::string_view::npos) {
        text.remove_prefix(scheme + 3);
    }
    text = text.substr(0, text.find_first_of("/?#"));
    if (const std::size_t at = text.rfind('@'); at != std::string_view::npos) {
        text.remove_prefix(at + 1);
    }
    return libraryReason(text).empty() ? std::string(text) : "";
}

std::string mistakeIn(std::string_view address) {
    if (address.find("://") != std::string_view::npos) {
        return "has a scheme";
    }
    if (address.find('@') != std::string_view::npos) {
        return "has a user name; UserName and Password are keys of their own";
    }
    if (address.find_first_of("/?") != std::string_view::npos) {
        return "has a path";
    }
    if (address.find_first_of(" \t") != std::string_view::npos) {
        return "has a blank";
    }
    return "can't be read: " + libraryReason(address);
}

} // namespace

std::string addressMistake(std::string_view address) {
    if (libraryReason(address).empty()) {
        return "";
    }
    const std::string meant = essence(address);
    return mistakeIn(address) + "; write " +
           (meant.empty() ? "host or host:port, as in camera:8080" : '"' + meant + '"');
}
