#include "appliance/discovery/messages/probe.h"

#include "appliance/discovery/messages/soap.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace {

constexpr const char* probeAction = "http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe";
constexpr const char* everybody = "urn:schemas-xmlsoap-org:ws:2005:04:discovery";
constexpr std::size_t maxMatches = 64; // in one answer

std::vector<std::string> wordsOf(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    std::vector<std::string> words;
    while (words.size() < maxListWords) {
        text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
        const std::string_view word = text.substr(0, text.find_first_of(blanks));
        if (word.empty()) {
            break;
        }
        words.emplace_back(word);
        text.remove_prefix(word.size());
    }
    return words;
}

bool isVideoDevice(const std::vector<std::string>& types) {
    return std::ranges::any_of(
        types, [](const std::string& type) { return type == "NetworkVideoTransmitter" || type == "Device"; });
}

bool answersOneOf(const XmlElement& envelope, const std::vector<std::string>& messageIds) {
    return std::ranges::find(messageIds, envelope.textAt("Header/RelatesTo")) != messageIds.end();
}

ProbeMatch readMatch(const XmlElement& element) {
    ProbeMatch match;
    match.endpoint = element.textAt("EndpointReference/Address");
    for (const std::string& type : wordsOf(element.textAt("Types"))) {
        match.types.emplace_back(withoutPrefix(type));
    }
    match.scopes = wordsOf(element.textAt("Scopes"));
    match.addresses = wordsOf(element.textAt("XAddrs"));
    return match;
}

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned value = 0;
        if (text[i] == '%' && i + 2 < text.size() &&
            std::from_chars(text.data() + i + 1, text.data() + i + 3, value, 16).ptr == text.data() + i + 3) {
            decoded += static_cast<char>(value);
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

} // namespace

std::string probeMessage(const std::string& messageId, Wanted wanted) {
    const std::string header =
        std::string("<a:Action s:mustUnderstand=\"1\" xmlns:a=\"") + soap::addressing + "\">" + probeAction +
        "</a:Action><a:MessageID xmlns:a=\"" + soap::addressing + "\">" + xmlEscaped(messageId) +
        "</a:MessageID><a:ReplyTo xmlns:a=\"" + soap::addressing + "\"><a:Address>" + soap::addressing +
        "/role/anonymous</a:Address></a:ReplyTo><a:To s:mustUnderstand=\"1\" xmlns:a=\"" + soap::addressing +
        "\">" + everybody + "</a:To>";
    const bool transmitter = wanted == Wanted::VideoTransmitter;
    const std::string body = std::string("<d:Probe xmlns:d=\"") + soap::discovery + "\"><d:Types xmlns:p=\"" +
                             (transmitter ? soap::network : soap::device) + "\">" +
                             (transmitter ? "p:NetworkVideoTransmitter" : "p:Device") +
                             "</d:Types></d:Probe>";
    return soapEnvelope(header, body);
}

std::vector<ProbeMatch> readProbeMatches(std::string_view text, const std::vector<std::string>& messageIds) {
    const XmlResult xml = readXml(text);
    if (!xml.root || xml.root->name != "Envelope" || !answersOneOf(*xml.root, messageIds)) {
        return {};
    }
    const XmlElement* const matches = xml.root->at("Body/ProbeMatches");
    std::vector<ProbeMatch> found;
    if (matches == nullptr) {
        return found;
    }
    for (const XmlElement& element : matches->children) {
        if (element.name != "ProbeMatch" || found.size() == maxMatches) {
            continue;
        }
        ProbeMatch match = readMatch(element);
        if (isVideoDevice(match.types) && !match.addresses.empty()) {
            found.push_back(std::move(match));
        }
    }
    return found;
}

std::string scopeValue(const std::vector<std::string>& scopes, std::string_view category) {
    const std::string start = "onvif://www.onvif.org/" + std::string(category) + "/";
    for (const std::string& scope : scopes) {
        if (scope.starts_with(start)) {
            return percentDecoded(std::string_view(scope).substr(start.size()));
        }
    }
    return {};
}
