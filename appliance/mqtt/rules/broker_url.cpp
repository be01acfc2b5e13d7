#include "appliance/mqtt/rules/broker_url.h"

#include <algorithm>
#include <charconv>

namespace mqtt {
namespace {

constexpr int plainPort = 1883;
constexpr int tlsPort = 8883;
constexpr std::string_view notInHosts = "/?#@[]\\\" \t";

int hexDigit(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    const char small = static_cast<char>(digit | 0x20);
    return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

// "%40" is "@"; what is no escape stays.
std::string unescaped(std::string_view text) {
    std::string plain;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool room = text[at] == '%' && at + 2 < text.size();
        const int high = room ? hexDigit(text[at + 1]) : -1;
        const int low = room ? hexDigit(text[at + 2]) : -1;
        if (high < 0 || low < 0) {
            plain += text[at];
            continue;
        }
        plain += static_cast<char>(high * 16 + low);
        at += 2;
    }
    return plain;
}

bool takeScheme(std::string_view& rest, bool& tls) {
    for (const std::string_view scheme : {"mqtt://", "mqtts://"}) {
        if (rest.starts_with(scheme)) {
            rest.remove_prefix(scheme.size());
            tls = scheme == "mqtts://";
            return true;
        }
    }
    return false;
}

void takeCredentials(std::string_view& authority, BrokerUrl& url) {
    const std::size_t at = authority.rfind('@');
    if (at == std::string_view::npos) {
        return;
    }
    const std::string_view credentials = authority.substr(0, at);
    const std::size_t colon = credentials.find(':');
    url.user = unescaped(credentials.substr(0, colon));
    url.password = colon == std::string_view::npos ? "" : unescaped(credentials.substr(colon + 1));
    authority.remove_prefix(at + 1);
}

// Takes the host off; what stays is the port with its colon.
std::string takeHost(std::string_view& authority, std::string& host) {
    const bool brackets = authority.starts_with('[');
    const std::size_t end = brackets ? authority.find(']') : std::min(authority.find(':'), authority.size());
    if (end == std::string_view::npos) {
        return R"(has a "[" without its "]")";
    }
    host = authority.substr(brackets ? 1 : 0, brackets ? end - 1 : end);
    authority.remove_prefix(brackets ? end + 1 : end);
    if (host.empty()) {
        return "has no host";
    }
    const bool strange = host.find_first_of(notInHosts) != std::string::npos;
    return strange ? "has a character in its host that no host has" : "";
}

std::string readPort(std::string_view text, int& port) {
    if (text.empty()) {
        return "";
    }
    text.remove_prefix(1); // the colon, or what is no colon
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && port >= 1 && port <= 65535 ? ""
                                               : "has a wrong port: it has to be a number from 1 to 65535";
}

} // namespace

std::string BrokerUrl::text() const {
    const bool brackets = host.find(':') != std::string::npos;
    return std::string(tls ? "mqtts://" : "mqtt://") + (brackets ? "[" : "") + host + (brackets ? "]" : "") +
           ':' + std::to_string(port);
}

std::string readBrokerUrl(std::string_view text, BrokerUrl& url) {
    BrokerUrl read;
    if (!takeScheme(text, read.tls)) {
        return "begins with neither mqtt:// nor mqtts://";
    }
    read.port = read.tls ? tlsPort : plainPort;
    const std::size_t slash = std::min(text.find('/'), text.size());
    std::string_view authority = text.substr(0, slash);
    read.path = text.substr(std::min(slash + 1, text.size()));
    takeCredentials(authority, read);
    if (std::string mistake = takeHost(authority, read.host); !mistake.empty()) {
        return mistake;
    }
    if (!authority.empty() && authority.front() != ':') {
        return "has something other than a port after its host";
    }
    if (std::string mistake = readPort(authority, read.port); !mistake.empty()) {
        return mistake;
    }
    url = std::move(read);
    return "";
}

std::string brokerMistake(std::string_view text) {
    BrokerUrl url;
    if (std::string mistake = readBrokerUrl(text, url); !mistake.empty()) {
        return mistake;
    }
    if (!url.user.empty() || !url.password.empty()) {
        return "has credentials; UserName and Password are keys of their own";
    }
    return url.path.empty() ? "" : "has a path after the host and port; remove it";
}

} // namespace mqtt
