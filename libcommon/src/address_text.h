// An encoder's address as text: HOST, HOST:PORT, [IPv6], [IPv6]:PORT, or a bare IPv6 address. No state, no
// log.
#pragma once

#include <string>
#include <string_view>

namespace network {

struct AddressParts {
    std::string host;        // without brackets; empty when the address can't be read
    unsigned short port = 0; // 0: none was written
    const char* error = "";  // why it can't be read
};

AddressParts parseAddress(std::string_view address);

} // namespace network
