#include "appliance/discovery/messages/media_messages.h"

#include "appliance/discovery/messages/soap.h"

#include <array>
#include <charconv>
#include <cmath>

namespace {

constexpr double maxNumber = 1000000;

// 0 for everything that is no number from 0 to a million.
double numberAt(const XmlElement& element, std::string_view path) {
    const std::string text = element.textAt(path);
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc{} && end == text.data() + text.size();
    return whole && std::isfinite(number) && number > 0 && number <= maxNumber ? number : 0;
}

std::string codecName(const std::string& word) {
    struct Row {
        const char* word;
        const char* name;
    };
    constexpr std::array rows{Row{"H264", "H.264"}, Row{"H265", "H.265"}, Row{"MPEG4", "MPEG-4"},
                              Row{"MP4V-ES", "MPEG-4"}, Row{"MPV4-ES", "MPEG-4"}};
    for (const Row& row : rows) {
        if (word == row.word) {
            return row.name;
        }
    }
    return word;
}

// The first of the two elements that exists, or null.
const XmlElement* either(const XmlElement& element, std::string_view first, std::string_view second) {
    const XmlElement* const found = element.at(first);
    return found == nullptr ? element.at(second) : found;
}

MediaProfile readProfile(const XmlElement& element, const XmlElement& encoder) {
    MediaProfile profile;
    profile.token = element.attribute("token");
    profile.name = element.textAt("Name");
    if (const XmlElement* const source =
            either(element, "VideoSourceConfiguration", "Configurations/VideoSource");
        source != nullptr) {
        profile.source = source->textAt("SourceToken");
    }
    profile.codec = codecName(encoder.textAt("Encoding"));
    profile.width = static_cast<int>(numberAt(encoder, "Resolution/Width"));
    profile.height = static_cast<int>(numberAt(encoder, "Resolution/Height"));
    profile.rate = numberAt(encoder, "RateControl/FrameRateLimit");
    profile.bitrate = static_cast<int>(numberAt(encoder, "RateControl/BitrateLimit"));
    if (const XmlElement* const sound =
            either(element, "AudioEncoderConfiguration", "Configurations/AudioEncoder");
        sound != nullptr) {
        profile.sound = sound->textAt("Encoding");
    }
    return profile;
}

} // namespace

std::string profilesRequest(MediaVersion version) {
    if (version == MediaVersion::One) {
        return std::string("<q:GetProfiles xmlns:q=\"") + soap::media + "\"/>";
    }
    return std::string("<q:GetProfiles xmlns:q=\"") + soap::media2 +
           "\"><q:Type>All</q:Type></q:GetProfiles>";
}

std::string streamRequest(MediaVersion version, std::string_view profile) {
    const std::string token = "<q:ProfileToken>" + xmlEscaped(profile) + "</q:ProfileToken></q:GetStreamUri>";
    if (version == MediaVersion::Two) {
        return std::string("<q:GetStreamUri xmlns:q=\"") + soap::media2 + "\"><q:Protocol>RTSP</q:Protocol>" +
               token;
    }
    return std::string("<q:GetStreamUri xmlns:q=\"") + soap::media + "\"><q:StreamSetup xmlns:t=\"" +
           soap::schema +
           "\"><t:Stream>RTP-Unicast</t:Stream><t:Transport><t:Protocol>RTSP</t:Protocol></t:Transport>"
           "</q:StreamSetup>" +
           token;
}

std::vector<MediaProfile> readProfiles(const XmlElement& answer) {
    std::vector<MediaProfile> profiles;
    for (const XmlElement& element : answer.children) {
        if (element.name != "Profiles" || profiles.size() == maxProfiles) {
            continue;
        }
        const XmlElement* const encoder =
            either(element, "VideoEncoderConfiguration", "Configurations/VideoEncoder");
        if (encoder != nullptr && !element.attribute("token").empty()) {
            profiles.push_back(readProfile(element, *encoder));
        }
    }
    return profiles;
}

std::string readStreamAddress(const XmlElement& answer) {
    const std::string nested = answer.textAt("MediaUri/Uri");
    return nested.empty() ? answer.textAt("Uri") : nested;
}
