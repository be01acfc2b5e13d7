#include "appliance/discovery/fuzz/targets.h"

#include "appliance/discovery/messages/device_messages.h"
#include "appliance/discovery/messages/media_messages.h"
#include "appliance/discovery/messages/probe.h"
#include "appliance/discovery/messages/security.h"
#include "appliance/discovery/messages/soap.h"
#include "appliance/discovery/web_address.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace {

void require(bool promise) {
    if (!promise) {
        std::abort();
    }
}

// A copy in memory of exactly this size, so that a sanitizer reports any access beyond it.
std::vector<char> copyOf(const std::uint8_t* data, std::size_t size) {
    return {data, data + size};
}

std::size_t depthOf(const XmlElement& element) {
    std::size_t deepest = 0;
    for (const XmlElement& child : element.children) {
        deepest = std::max(deepest, depthOf(child));
    }
    return deepest + 1;
}

std::size_t countOf(const XmlElement& element) {
    std::size_t count = 1;
    for (const XmlElement& child : element.children) {
        count += countOf(child);
    }
    return count;
}

void requireUsable(const std::string& url) {
    for (const auto& address : {readServiceUrl(url), readStreamUrl(url)}) {
        if (address) {
            const std::string text = address->url();
            require(text.find_first_of(" \r\n\t\x1b") == std::string::npos && !address->host.empty());
            require(address->path.starts_with('/'));
        }
    }
}

void requireProfiles(const XmlElement& content) {
    const std::vector<MediaProfile> profiles = readProfiles(content);
    require(profiles.size() <= maxProfiles);
    for (const MediaProfile& profile : profiles) {
        require(!profile.token.empty() && profile.width >= 0 && profile.height >= 0);
        require(profile.rate >= 0 && profile.rate <= 1000000 && profile.bitrate >= 0);
        require(readXml(streamRequest(MediaVersion::One, profile.token)).root.has_value());
    }
}

} // namespace

int fuzzSoapAnswer(const std::uint8_t* data, std::size_t size) {
    const std::vector<char> bytes = copyOf(data, size);
    const std::string_view text(bytes.data(), bytes.size());
    const XmlResult xml = readXml(text);
    require(xml.root.has_value() == xml.mistake.empty());
    if (xml.root) {
        require(depthOf(*xml.root) <= maxXmlDepth && countOf(*xml.root) <= maxXmlElements);
        (void)readToken(*xml.root);
    }
    const SoapAnswer answer = readSoapAnswer(text);
    require(answer.mistake.empty() || (!answer.isFault && answer.content.name.empty()));
    require(!answer.notAuthorized || answer.isFault);
    const std::optional<std::int64_t> time = readTime(answer.content);
    require(!time || (*time >= 0 && *time < 300000000000));
    (void)readInformation(answer.content);
    requireUsable(readServices(answer.content).media1);
    requireUsable(readCapabilities(answer.content).media1);
    requireUsable(readStreamAddress(answer.content));
    requireProfiles(answer.content);
    require(readXml("<x>" + xmlEscaped(text.substr(0, 10000)) + "</x>").root.has_value());
    return 0;
}

int fuzzProbeMatches(const std::uint8_t* data, std::size_t size) {
    const std::vector<char> bytes = copyOf(data, size);
    const LocalNetwork network{"eth0", 2, 0xc0a80109, 0xffffff00};
    for (const ProbeMatch& match : readProbeMatches({bytes.data(), bytes.size()}, {"urn:uuid:1"})) {
        require(!match.addresses.empty() && match.addresses.size() <= maxListWords);
        require(match.types.size() <= maxListWords && match.scopes.size() <= maxListWords);
        (void)scopeValue(match.scopes, "name");
        const ChosenAddress chosen = chooseAddress(match.addresses, 0xc0a80114, network);
        require(chosen.address.has_value() == chosen.problem.empty());
        require(!chosen.address || network.contains(ipv4Of(chosen.address->host).value_or(0)));
    }
    return 0;
}
