#include "libcommon/src/address_text.h"

#include <libcommon/log.h>
#include <libcommon/network.h>

#include <utility>

int splitAddress(const std::string& address, std::string& host, unsigned short& port) {
    network::AddressParts parts = network::parseAddress(address);
    host = std::move(parts.host);
    if (parts.port != 0)
        port = parts.port;
    if (!host.empty())
        return 0;
    // The user may have typed user:password@host: never log the part before the "@".
    const std::size_t at = address.rfind('@');
    const std::string shown = at == std::string::npos ? address : "..." + address.substr(at);
    logmsg(3, "Can't read the address \"%s\": %s", shown.c_str(), parts.error);
    return -1;
}

std::string libcommon::whyNotAddress(const std::string& address) {
    const network::AddressParts parts = network::parseAddress(address);
    return parts.host.empty() ? parts.error : "";
}
