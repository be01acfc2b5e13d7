#include "appliance/encoder/onvif/onvif_facts.h"

#include "appliance/encoder/device/authenticator.h"
#include "appliance/serving/media_path.h"

namespace {

std::string uuidOf(const std::string& text) {
    std::string digits = md5Hex(text);
    for (const std::size_t at : {8U, 13U, 18U, 23U})
        digits.insert(at, "-");
    return "urn:uuid:" + digits;
}

void addProfiles(OnvifFacts& facts, const Options& options, int input) {
    const std::string number = std::to_string(input);
    if (options.offersRtspPort()) {
        const bool h264 = options.codec == Codec::H264;
        facts.profiles.push_back({"profile_" + number, "Input " + number + (h264 ? " H264" : " MPEG4"), input,
                                  h264 ? "H264" : "MPEG4", h264 ? "H264" : "MPV4-ES", "rtsp",
                                  mediaPathOf(input)});
    }
    if (options.offers(Kind::Mjpeg))
        facts.profiles.push_back({"jpeg_" + number, "Input " + number + " JPEG", input, "JPEG", "JPEG",
                                  "http", "/vexo-cgi/mjpg/video.cgi?camera=" + number});
}

} // namespace

std::string OnvifPlace::url(const std::string& scheme, const std::string& path) const {
    return scheme + "://" + host + ":" + std::to_string(port) + path;
}

OnvifFacts onvifFacts(const Options& options, std::uint16_t port) {
    OnvifFacts facts;
    facts.endpoint = uuidOf(options.name + "/" + options.address + "/" + std::to_string(port));
    facts.port = port;
    facts.name = options.name;
    facts.model = options.model;
    facts.inputs = static_cast<int>(options.inputs.size());
    facts.width = options.width;
    facts.height = options.height;
    facts.fps = options.fps;
    facts.bitrate = options.bitrate;
    facts.keyInterval = options.keyInterval;
    for (int input = 1; input <= facts.inputs; ++input)
        addProfiles(facts, options, input);
    return facts;
}
