#include "detect/transport_header.h"

#include "detect/decimal.h"

#include <algorithm>

namespace detect {
namespace {

// Whether `part` begins with `name`; `rest` is then the text behind it.
bool begins(std::string_view part, std::string_view name, std::string& rest) {
    if (!part.starts_with(name))
        return false;
    rest = part.substr(name.size());
    return true;
}

void readPart(TransportHeader& header, std::string_view part) {
    std::string rest;
    if (begins(part, "destination=", rest))
        header.destination = rest;
    else if (begins(part, "port=", rest))
        header.port = decimalPort(rest.c_str());
    else if (begins(part, "server_port=", rest))
        header.serverPort = decimalPort(rest.c_str());
    else if (begins(part, "client_port=", rest))
        header.clientPort = decimalPort(rest.c_str());
}

} // namespace

TransportHeader parseTransport(std::string_view value) {
    TransportHeader header;
    while (!value.empty()) {
        const std::size_t end = std::min(value.find(';'), value.size());
        readPart(header, value.substr(0, end));
        value.remove_prefix(std::min(end + 1, value.size()));
    }
    return header;
}

} // namespace detect
