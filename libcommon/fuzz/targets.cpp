#include "libcommon/fuzz/targets.h"

#include "libcommon/src/address_text.h"
#include "libcommon/src/header_text.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

using network::HeaderCollector;

namespace {

void require(bool promise) {
    if (!promise)
        std::abort();
}

struct Collected {
    HeaderCollector::State state;
    std::string text;
    std::size_t taken;
    bool operator==(const Collected&) const = default;
};

Collected collect(std::string_view bytes, std::size_t pieceSize) {
    HeaderCollector collector;
    std::size_t taken = 0;
    while (taken < bytes.size() && collector.state() == HeaderCollector::State::Collecting) {
        // A copy of exactly its size, so that a sanitizer reports every access beyond it.
        const std::string_view rest = bytes.substr(taken, pieceSize);
        const std::vector<char> piece(rest.begin(), rest.end());
        const std::size_t count = collector.take({piece.data(), piece.size()});
        require(count == piece.size() || collector.state() != HeaderCollector::State::Collecting);
        taken += count;
    }
    return {collector.state(), collector.text(), taken};
}

void requireUsable(const ResponseHeader& header) {
    require(header.statusCode >= 100 && header.statusCode <= 999);
    const auto hasLineEnd = [](std::string_view text) { return text.find_first_of("\r\n") != text.npos; };
    require(!hasLineEnd(header.reason));
    for (const auto& [name, value] : header.headers)
        require(!name.empty() && !hasLineEnd(value));
}

} // namespace

int fuzzResponseHeader(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const Collected whole = collect(bytes, std::max<std::size_t>(size, 1));
    for (const std::size_t pieceSize : {1, 7})
        require(collect(bytes, pieceSize) == whole);
    require(whole.text.size() <= network::maximumHeaderLength);
    ResponseHeader header;
    if (whole.state == HeaderCollector::State::Complete && network::parseHeaderText(whole.text, header))
        requireUsable(header);
    // The reader alone, with bytes that the collector has not checked.
    const std::vector<char> raw(bytes.begin(), bytes.end());
    ResponseHeader fromRaw;
    if (network::parseHeaderText({raw.data(), raw.size()}, fromRaw))
        requireUsable(fromRaw);
    return 0;
}

int fuzzAddress(const std::uint8_t* data, std::size_t size) {
    const std::vector<char> raw(data, data + size);
    const network::AddressParts parts = network::parseAddress({raw.data(), raw.size()});
    if (parts.host.empty()) {
        require(parts.port == 0 && *parts.error != '\0');
        return 0;
    }
    require(network::isHostText(parts.host) && parts.host.size() <= size);
    // The parts, written as an address again, are read as the same parts.
    const bool isIPv6 = parts.host.find(':') != std::string::npos;
    const std::string port = parts.port == 0 ? "" : ":" + std::to_string(parts.port);
    const network::AddressParts again =
        network::parseAddress((isIPv6 ? "[" + parts.host + "]" : parts.host) + port);
    require(again.host == parts.host && again.port == parts.port);
    return 0;
}
