// The messages that find devices: a Probe goes to the multicast group, each device answers with ProbeMatches.
#pragma once

#include <string>
#include <string_view>
#include <vector>

constexpr const char* discoveryGroup = "239.255.255.250";
constexpr unsigned short discoveryPort = 3702;

// What is searched for: older devices know only the first of the two.
enum class Wanted { VideoTransmitter, Device };

std::string probeMessage(const std::string& messageId, Wanted wanted);

struct ProbeMatch {
    std::string endpoint;               // "urn:uuid:...", which stays the same when the address changes
    std::vector<std::string> types;     // local names
    std::vector<std::string> scopes;    // URIs
    std::vector<std::string> addresses; // of the device service, URLs
};

constexpr std::size_t maxListWords = 64;

// The devices in an answer to one of our probes. Empty if the text is anything else, if it answers none of these
// message ids, or if it names no video device with an address.
std::vector<ProbeMatch> readProbeMatches(std::string_view text, const std::vector<std::string>& messageIds);

// The value of the scope "onvif://www.onvif.org/CATEGORY/VALUE", percent-decoded; "" if there is none.
std::string scopeValue(const std::vector<std::string>& scopes, std::string_view category);
