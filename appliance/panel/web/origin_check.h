// Whether a request belongs here: its Host, and where a change comes from.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace panel {

// "name", "name:8088" or "[::1]:8088", in lower case and without a dot at the end of the name.
struct Authority {
    std::string host; // "" if the text is none
    std::string port; // "" if there is none
};
Authority readAuthority(std::string_view text);

// Keeps pages of other sites out whose names were pointed at this machine (DNS rebinding): a Host has to be localhost, the
// numeric address of this end of the connection, or one of the configured names.
bool isKnownHost(std::string_view host, std::string_view localAddress, const std::vector<std::string>& names);

// Where a request with a session's cookie comes from, as the browser says.
struct RequestSource {
    std::string_view host;      // header Host
    std::string_view origin;    // header Origin; "" if there is none
    std::string_view fetchSite; // header Sec-Fetch-Site
    bool marked = false;        // it has a header or type that a form of another site can't send
    bool secure = false;        // the connection is TLS
};

// Whether a change may be made: the browser says that it comes from a page of this panel. Without a word about it, which
// browsers always say, only a marked request may.
bool isSameOrigin(const RequestSource& source);

} // namespace panel
