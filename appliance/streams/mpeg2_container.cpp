#include "appliance/streams/mpeg2_container.h"

#include <algorithm>

namespace streams {
namespace {

constexpr std::size_t packetBytes = 188;
constexpr char syncByte = 0x47;

// A live stream is joined at any byte, so the first whole packet begins anywhere within the first packet length.
bool isTransport(std::string_view begin) {
    for (std::size_t start = 0; start < std::min(packetBytes, begin.size()); ++start) {
        std::size_t packets = 0;
        bool all = true;
        for (std::size_t at = start; at < begin.size(); at += packetBytes, ++packets)
            all = all && begin[at] == syncByte;
        if (all && packets >= 2)
            return true;
    }
    return false;
}

} // namespace

Mpeg2Container containerOf(std::string_view begin) {
    constexpr std::string_view packHeader("\0\0\1\xba", 4);
    constexpr std::string_view sequenceHeader("\0\0\1\xb3", 4);
    const std::size_t pack = begin.find(packHeader);
    const std::size_t sequence = begin.find(sequenceHeader);
    if (pack != std::string_view::npos && pack <= sequence)
        return Mpeg2Container::program;
    return sequence != 0 && isTransport(begin) ? Mpeg2Container::transport : Mpeg2Container::elementary;
}

} // namespace streams
