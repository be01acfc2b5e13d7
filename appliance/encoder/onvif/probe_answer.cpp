#include "appliance/encoder/onvif/probe_answer.h"

#include "appliance/discovery/messages/security.h"
#include "appliance/discovery/messages/soap.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <sstream>

namespace {

constexpr const char* answerAction = "http://schemas.xmlsoap.org/ws/2005/04/discovery/ProbeMatches";

std::vector<std::string> wordsOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; words.size() < 100 && stream >> word;)
        words.push_back(word);
    return words;
}

bool isOurType(const std::string& type) {
    return withoutPrefix(type) == "NetworkVideoTransmitter" || withoutPrefix(type) == "Device";
}

std::string percentEncoded(const std::string& text) {
    std::string encoded;
    for (const char c : text) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '.' || c == '_') {
            encoded += c;
            continue;
        }
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), "%%%02X", static_cast<unsigned char>(c));
        encoded += digits.data();
    }
    return encoded;
}

} // namespace

std::vector<std::string> scopesOf(const OnvifFacts& facts) {
    return {"onvif://www.onvif.org/Profile/Streaming", "onvif://www.onvif.org/type/video_encoder",
            "onvif://www.onvif.org/name/" + percentEncoded(facts.name),
            "onvif://www.onvif.org/hardware/" + percentEncoded(facts.model)};
}

std::optional<std::string> probeForUs(std::string_view datagram, const OnvifFacts& facts) {
    const XmlResult xml = readXml(datagram);
    const XmlElement* const probe = xml.root ? xml.root->at("Body/Probe") : nullptr;
    if (probe == nullptr || probe->nameSpace != soap::discovery)
        return std::nullopt;
    const std::vector<std::string> types = wordsOf(probe->textAt("Types"));
    const std::vector<std::string> scopes = wordsOf(probe->textAt("Scopes"));
    const std::vector<std::string> ours = scopesOf(facts);
    const std::string id = xml.root->textAt("Header/MessageID");
    const bool fits = std::all_of(types.begin(), types.end(), isOurType) &&
                      std::all_of(scopes.begin(), scopes.end(), [&](const std::string& wanted) {
                          return std::any_of(ours.begin(), ours.end(), [&](const std::string& scope) {
                              return scope.starts_with(wanted);
                          });
                      });
    return fits && !id.empty() ? std::optional(id) : std::nullopt;
}

std::string probeAnswer(const std::string& messageId, const OnvifFacts& facts, const std::string& deviceUrl) {
    const std::string addressing = std::string(" xmlns:a=\"") + soap::addressing + "\"";
    const std::string header =
        "<a:MessageID" + addressing + ">" + randomUuid() + "</a:MessageID><a:RelatesTo" + addressing + ">" +
        xmlEscaped(messageId) + "</a:RelatesTo><a:To" + addressing + ">" + soap::addressing +
        "/role/anonymous</a:To><a:Action" + addressing + ">" + answerAction + "</a:Action>";
    std::string scopes;
    for (const std::string& scope : scopesOf(facts))
        scopes += (scopes.empty() ? "" : " ") + scope;
    const std::string body =
        std::string("<d:ProbeMatches xmlns:d=\"") + soap::discovery + "\" xmlns:dn=\"" + soap::network +
        "\" xmlns:tds=\"" + soap::device + "\"" + addressing +
        "><d:ProbeMatch><a:EndpointReference><a:Address>" + facts.endpoint +
        "</a:Address></a:EndpointReference><d:Types>dn:NetworkVideoTransmitter "
        "tds:Device</d:Types><d:Scopes>" +
        xmlEscaped(scopes) + "</d:Scopes><d:XAddrs>" + xmlEscaped(deviceUrl) +
        "</d:XAddrs><d:MetadataVersion>1</d:MetadataVersion></d:ProbeMatch></d:ProbeMatches>";
    return soapEnvelope(header, body);
}
