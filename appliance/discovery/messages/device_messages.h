// What a device is asked about itself: requests (the content of a body) and readers of their answers. Each reader takes
// the content that readSoapAnswer() returned.
#pragma once

#include "appliance/discovery/messages/xml.h"

#include <cstdint>
#include <optional>
#include <string>

std::string timeRequest();
std::string informationRequest();
std::string servicesRequest();
std::string capabilitiesRequest(); // for devices that do not know the request for services

// The device's clock, seconds since 1970 UTC. Nothing if the answer has no time that exists.
std::optional<std::int64_t> readTime(const XmlElement& answer);

struct DeviceInformation {
    std::string manufacturer;
    std::string model;
    std::string firmware;
    std::string serial;
    std::string hardware;
};
DeviceInformation readInformation(const XmlElement& answer);

// The addresses of the two media services as the device names them; "" if it does not have one.
struct MediaServices {
    std::string media1;
    std::string media2;
};
MediaServices readServices(const XmlElement& answer);
MediaServices readCapabilities(const XmlElement& answer);
