#include "appliance/gateway/cameras/playable.h"

#include "appliance/input/protocol/messages.h"
#include "appliance/streams/rtsp_message.h"

#include <algorithm>
#include <array>

namespace gateway {
namespace {

constexpr std::array videos{"H264", "H265", "MP4V-ES", "MPV", "MP2T", "JPEG"};
constexpr std::array sounds{"PCMU", "PCMA", "MPA", "MPEG4-GENERIC", "MP4A-LATM", "G726-32"};

template<std::size_t Size>
bool isIn(const std::array<const char*, Size>& names, const std::string& name) {
    return std::ranges::any_of(names, [&](const char* one) { return name == one; });
}

} // namespace

bool isPlayableVideo(const std::string& encodingName) {
    return isIn(videos, encodingName);
}

bool isEncodableVideo(const std::string& encodingName) {
    return input::decodesPackets(encodingName);
}

bool isPlayableSound(const std::string& encodingName) {
    return isIn(sounds, encodingName);
}

TrackInfo trackOf(const streams::DescribedStream& stream) {
    TrackInfo info{stream.encodingName, stream.payloadType, 90000, stream.rtpmap, stream.fmtp};
    const std::size_t rate = stream.caps.find("clock-rate=");
    if (rate != std::string::npos) {
        const std::size_t digits = stream.caps.find_first_of("0123456789", rate);
        info.clockRate = std::max(1, streams::numberAt(std::string_view(stream.caps).substr(digits)));
    }
    return info;
}

} // namespace gateway
