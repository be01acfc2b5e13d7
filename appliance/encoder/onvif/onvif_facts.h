// What the encoder tells ONVIF clients about itself.
#pragma once

#include "appliance/encoder/device/encoder_options.h"

#include <cstdint>
#include <string>
#include <vector>

// A stream of an input.
struct OnvifProfile {
    std::string token; // "profile_1", "jpeg_1"
    std::string name;  // "Input 1 H264"
    int input = 1;
    std::string codec;  // in the first version of the media service
    std::string codec2; // in the second one
    std::string scheme; // "rtsp" or "http"
    std::string path;   // with the query
};

struct OnvifFacts {
    std::string endpoint;   // "urn:uuid:...", the same at every start with the same name, address and port
    std::uint16_t port = 0; // of HTTP
    std::string name;
    std::string model;
    int inputs = 1;
    int width = 0;
    int height = 0;
    int fps = 0;
    int bitrate = 0; // kilobits per second; 0: not limited
    int keyInterval = 0;
    std::vector<OnvifProfile> profiles;
};

// Where a client reaches the encoder.
struct OnvifPlace {
    std::string host;       // numeric
    std::uint16_t port = 0; // of HTTP; the same port serves RTSP

    std::string url(const std::string& scheme, const std::string& path) const;
};

constexpr const char* onvifDevicePath = "/onvif/device_service";
constexpr const char* onvifMediaPath = "/onvif/media_service";
constexpr const char* onvifMedia2Path = "/onvif/media2_service";

// `port` is the HTTP port.
OnvifFacts onvifFacts(const Options& options, std::uint16_t port);
