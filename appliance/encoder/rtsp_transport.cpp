#include "appliance/encoder/rtsp_transport.h"

#include "appliance/encoder/http_message.h"

#include <algorithm>
#include <optional>

namespace {

// "5000-5001", or "5000" alone, which means the port above it as well.
bool readPair(std::string_view text, int limit, Transport& transport) {
    const std::size_t dash = text.find('-');
    const std::optional<int> first = wholeNumber(text.substr(0, dash));
    const std::optional<int> second = dash == std::string_view::npos
                                          ? std::optional<int>(first.value_or(0) + 1)
                                          : wholeNumber(text.substr(dash + 1));
    if (!first || !second || *first > limit || *second > limit)
        return false;
    transport.first = static_cast<std::uint16_t>(*first);
    transport.second = static_cast<std::uint16_t>(*second);
    return true;
}

std::string pairText(std::uint16_t first, int second) {
    return std::to_string(first) + "-" + std::to_string(second);
}

} // namespace

Transport parseTransport(std::string_view text) {
    Transport transport;
    bool tcp = false;
    bool multicast = false;
    bool ports = false;
    bool channels = false;
    for (bool first = true; !text.empty(); first = false) {
        const std::string_view part = trimmed(text.substr(0, text.find(';')));
        text.remove_prefix(std::min(text.find(';'), text.size() - 1) + 1);
        if (first) {
            tcp = equalIgnoringCase(part, "RTP/AVP/TCP");
            if (!tcp && !equalIgnoringCase(part, "RTP/AVP") && !equalIgnoringCase(part, "RTP/AVP/UDP"))
                return {};
        } else if (equalIgnoringCase(part, "multicast")) {
            multicast = true;
        } else if (part.starts_with("client_port=")) {
            ports = readPair(part.substr(12), 65535, transport);
        } else if (part.starts_with("interleaved=")) {
            channels = readPair(part.substr(12), 255, transport);
        }
    }
    if (tcp) {
        transport.kind = Transport::Kind::Interleaved;
        if (!channels)
            transport.first = 0, transport.second = 1;
    } else if (multicast) {
        transport.kind = Transport::Kind::Multicast;
    } else if (ports && transport.first > 0 && transport.second == transport.first + 1) {
        transport.kind = Transport::Kind::Unicast;
    }
    return transport;
}

std::string multicastReply(const MulticastPlace& place) {
    return "RTP/AVP;multicast;destination=" + place.group + ";port=" + pairText(place.port, place.port + 1) +
           ";ttl=1";
}

std::string unicastReply(const Transport& wish, std::uint16_t serverPort) {
    return "RTP/AVP;unicast;client_port=" + pairText(wish.first, wish.second) +
           ";server_port=" + pairText(serverPort, serverPort + 1);
}

std::string interleavedReply(const Transport& wish) {
    return "RTP/AVP/TCP;unicast;interleaved=" + pairText(wish.first, wish.second);
}
