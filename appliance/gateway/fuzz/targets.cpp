#include "appliance/gateway/fuzz/targets.h"

#include "appliance/gateway/cameras/camera_url.h"
#include "appliance/streams/rtp/picture_size.h"
#include "appliance/streams/rtp/reordering.h"
#include "appliance/streams/rtp/video_relay.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

namespace {

void require(bool promise) {
    if (!promise)
        std::abort();
}

} // namespace

int fuzzUrl(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    gateway::CameraUrl url;
    if (!gateway::readCameraUrl(text, url).empty())
        return 0;
    require(url.isAtThisMachine() ? url.host.empty() : !url.host.empty() && url.port != 0);
    require(url.target.starts_with('/'));
    // What is written to the parameter file reads back as the same camera, and has no credentials.
    gateway::CameraUrl again;
    require(gateway::readCameraUrl(url.text(), again).empty());
    require(again.text() == url.text() && again.user.empty() && again.password.empty());
    return 0;
}

int fuzzPackets(const std::uint8_t* data, std::size_t size) {
    constexpr const char* names[] = {"H264", "H265", "MP4V-ES", "JPEG", "MPV", "MP2T"};
    constexpr std::size_t kept = 4096;
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (bytes.empty())
        return 0;
    const std::string name = names[static_cast<std::uint8_t>(bytes[0]) % std::size(names)];
    bytes.remove_prefix(1);
    streams::VideoRelay relay(
        {.encodingName = name, .payloadType = 96, .clockRate = 90000, .fmtp = "", .keptBytes = kept}, 7,
        [](const streams::Packet& packet, bool /*start*/) {
            require(streams::readRtp(*packet).has_value());
            require(streams::readRtp(*packet)->source == 7);
        });
    std::int64_t now = 1;
    streams::Reordering order([&](std::string_view packet) { relay.add(packet, now); });
    while (bytes.size() >= 2) {
        const std::size_t length =
            std::min<std::size_t>(static_cast<std::size_t>(static_cast<std::uint8_t>(bytes[0])) << 8 |
                                      static_cast<std::uint8_t>(bytes[1]),
                                  bytes.size() - 2);
        const std::string_view packet = bytes.substr(2, length);
        streams::sizeInPayload(streams::encodingOf(name), packet);
        order.add(packet, now += 1000);
        bytes.remove_prefix(2 + length);
        require(relay.kept().bytes() <= kept);
    }
    return 0;
}
