// What a device is asked about its streams, in the two versions of the media service. Requests are the content of a
// body; readers take the content that readSoapAnswer() returned.
#pragma once

#include "appliance/discovery/messages/xml.h"

#include <string>
#include <string_view>
#include <vector>

enum class MediaVersion { One, Two };

std::string profilesRequest(MediaVersion version);
std::string streamRequest(MediaVersion version, std::string_view profile);

// One stream that a device offers.
struct MediaProfile {
    std::string token;  // what the device calls it
    std::string name;   // for people
    std::string source; // token of the video source: profiles with the same one show the same picture
    std::string codec;  // "H.264", "H.265", "MPEG-4", "JPEG", or the device's own word
    int width = 0;      // pixels; 0: not told
    int height = 0;
    double rate = 0;   // pictures a second, at most; 0: not told
    int bitrate = 0;   // kilobits a second, at most; 0: not told
    std::string sound; // the device's word for the codec; "" without sound
};

constexpr std::size_t maxProfiles = 64;

// Profiles with video only. Both versions of the answer.
std::vector<MediaProfile> readProfiles(const XmlElement& answer);

// The address of a stream; "" if the answer has none.
std::string readStreamAddress(const XmlElement& answer);
