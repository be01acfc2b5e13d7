// Hosts and encoders' addresses as text. No state, no log, no name server.
#pragma once

#include <string>
#include <string_view>

namespace network {

// Whether `host` has only characters of names and addresses: letters, digits, ".", "-", "_", and for
// IPv6 ":" and a "%zone". Anything else never reaches a name server or a URL.
bool isHostText(std::string_view host);

// Whether `text` is an IPv6 address, a "%zone" included.
bool isIPv6Text(std::string_view text);

struct AddressParts {
    std::string host;        // without brackets; empty when the address can't be read
    unsigned short port = 0; // 0: none was written
    const char* error = "";  // why it can't be read
};

// Reads HOST, HOST:PORT, [IPv6], [IPv6]:PORT, or a bare IPv6 address.
AddressParts parseAddress(std::string_view address);

} // namespace network
