#include "appliance/players/mpeg2_container.h"

#include "appliance/players/gst_start.h"

#include <algorithm>

namespace player {
namespace {

constexpr std::size_t packetBytes = 188;
constexpr char syncByte = 0x47;

// Transport packets may begin anywhere in the first one's length: a live stream is joined where it is.
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

Mpeg2Chain chainOf(Mpeg2Container container) {
    switch (container) {
    case Mpeg2Container::transport:
        return {"tsdemux ! mpegvideoparse ! mpeg2dec name=decoder",
                "video/mpegts,systemstream=true,packetsize=188"};
    case Mpeg2Container::program:
        return {"mpegpsdemux ! mpegvideoparse ! mpeg2dec name=decoder",
                "video/mpeg,mpegversion=2,systemstream=true"};
    case Mpeg2Container::elementary:
        break;
    }
    return {"mpegvideoparse ! mpeg2dec name=decoder", "video/mpeg,mpegversion=2,systemstream=false"};
}

bool loadMpeg2Plugins() {
    return loadPlugins({"coreelements", "videoparsersbad", "mpeg2dec", "mpegtsdemux", "mpegpsdemux"});
}

} // namespace player
