#include "detect/fuzz/targets.h"

#include "detect/parameter_reply.h"
#include "detect/sdp_description.h"
#include "detect/transport_header.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

void require(bool promise) {
    if (!promise)
        std::abort();
}

// A copy in memory of exactly this size, so that a sanitizer reports any access beyond it.
std::vector<char> copyOf(const std::uint8_t* data, std::size_t size) {
    return {data, data + size};
}

bool standsIn(const std::string& part, std::string_view whole) {
    return whole.find(part) != std::string_view::npos;
}

} // namespace

int fuzzSdp(const std::uint8_t* data, std::size_t size) {
    const std::vector<char> bytes = copyOf(data, size);
    const std::string_view text(bytes.data(), bytes.size());
    const detect::SdpDescription found = detect::parseSdp(text);
    constexpr std::string_view never(" /\r\n\0", 5);
    require(found.videoAddress.find_first_of(never) == std::string::npos);
    require(found.audioAddress.find_first_of(never) == std::string::npos);
    require(standsIn(found.videoAddress, text) && standsIn(found.audioAddress, text));
    require(!found.hasAudio || standsIn("m=audio", text));
    require(found.videoAddress.empty() || standsIn("m=video", text));
    return 0;
}

int fuzzTransport(const std::uint8_t* data, std::size_t size) {
    const std::vector<char> bytes = copyOf(data, size);
    const std::string_view value(bytes.data(), bytes.size());
    const detect::TransportHeader header = detect::parseTransport(value);
    require(header.destination.find(';') == std::string::npos);
    require(standsIn(header.destination, value));
    require(header.port == 0 || standsIn("port=", value));
    require(header.clientPort == 0 || standsIn("client_port=", value));
    require(header.serverPort == 0 || standsIn("server_port=", value));
    return 0;
}

int fuzzParameterReply(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::size_t nameLength = std::min<std::size_t>(data[0] % 64, size - 1);
    const std::string name(reinterpret_cast<const char*>(data) + 1, nameLength);
    std::vector<char> reply = copyOf(data + 1 + nameLength, size - 1 - nameLength);
    if (reply.empty())
        return 0;
    const std::vector<char> before = reply;
    const bool found = detect::extractValue(reply, static_cast<int>(reply.size()), name);
    const std::size_t length = strnlen(reply.data(), reply.size());
    require(length < reply.size());
    const std::string_view original(before.data(), strnlen(before.data(), before.size() - 1));
    const std::string_view value(reply.data(), length);
    require(found == original.starts_with(name));
    require(found ? original.ends_with(value) : original == value);
    return 0;
}
