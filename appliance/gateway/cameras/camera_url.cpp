#include "appliance/gateway/cameras/camera_url.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <strings.h>

namespace gateway {
namespace {

struct SchemeRow {
    std::string_view name;
    Scheme scheme;
    std::uint16_t port;
};
constexpr std::array<SchemeRow, 4> schemes{{{"rtsp", Scheme::rtsp, 554},
                                            {"rtsps", Scheme::rtsps, 322},
                                            {"http", Scheme::http, 80},
                                            {"https", Scheme::https, 443}}};
constexpr std::size_t longestUrl = 2000;

const SchemeRow* rowOf(std::string_view name) {
    const auto* const row = std::ranges::find_if(schemes, [&](const SchemeRow& one) {
        return one.name.size() == name.size() && strncasecmp(one.name.data(), name.data(), name.size()) == 0;
    });
    return row == schemes.end() ? nullptr : row;
}

int hexDigit(char c) {
    constexpr std::string_view digits = "0123456789abcdef";
    const char small = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
    const std::size_t at = digits.find(small);
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

std::string decoded(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 &&
            hexDigit(text[i + 2]) >= 0) {
            result += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
            i += 2;
        } else {
            result += text[i];
        }
    }
    return result;
}

bool hasControl(std::string_view text) {
    return std::ranges::any_of(text,
                               [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == 0x7f; });
}

std::optional<std::uint16_t> portIn(std::string_view text) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size() || number < 1 || number > 65535)
        return std::nullopt;
    return static_cast<std::uint16_t>(number);
}

std::string whyNotScheme(std::string_view name) {
    if (name == "file" || name.empty())
        return "files are not played by the gateway yet: video-encoder --input FILE makes a source of one";
    if (name == "srt")
        return "SRT is not played by the gateway yet: video-encoder --input URL makes a source of it";
    return "the URL begins with none of rtsp://, rtsps://, http:// and https://";
}

// "host", "host:port", "[IPv6]:port".
std::string readPlace(std::string_view place, CameraUrl& url) {
    std::string_view port;
    if (place.starts_with('[')) {
        const std::size_t end = place.find(']');
        if (end == std::string_view::npos)
            return "the host begins with [ and has no ]";
        url.host = place.substr(1, end - 1);
        port = place.substr(end + 1);
    } else {
        const std::size_t colon = std::min(place.find(':'), place.size());
        url.host = place.substr(0, colon);
        port = place.substr(colon);
    }
    if (url.host.empty())
        return "the URL has no host";
    if (port.empty())
        return "";
    const auto number = port.front() == ':' ? portIn(port.substr(1)) : std::nullopt;
    if (!number)
        return "the port is not a number from 1 to 65535";
    url.port = *number;
    return "";
}

} // namespace

std::string CameraUrl::place() const {
    const bool bracketed = host.find(':') != std::string::npos;
    return (bracketed ? "[" : "") + host + (bracketed ? "]" : "") + ":" + std::to_string(port);
}

std::string CameraUrl::text() const {
    const auto* const row =
        std::ranges::find_if(schemes, [&](const SchemeRow& one) { return one.scheme == scheme; });
    return std::string(row->name) + "://" + place() + target;
}

std::string readCameraUrl(std::string_view text, CameraUrl& url) {
    if (text.size() > longestUrl)
        return "the URL is longer than " + std::to_string(longestUrl) + " bytes";
    if (text.starts_with('/'))
        return text.starts_with("/dev/") ? "cameras at this machine are not played by the gateway yet: "
                                           "video-encoder --input /dev/video0 makes a source of one"
                                         : whyNotScheme("file");
    if (hasControl(text))
        return "the URL has a blank or a control character; write %20 for a blank";
    const std::size_t colon = text.find("://");
    const SchemeRow* row = colon == std::string_view::npos ? nullptr : rowOf(text.substr(0, colon));
    if (row == nullptr)
        return whyNotScheme(colon == std::string_view::npos ? "-" : text.substr(0, colon));
    CameraUrl read{
        .scheme = row->scheme, .host = {}, .port = row->port, .target = "/", .user = {}, .password = {}};
    text.remove_prefix(colon + 3);
    const std::size_t end = std::min(text.find_first_of("/?#"), text.size());
    std::string_view place = text.substr(0, end);
    // A password may have an @ of its own, so the last one counts.
    if (const std::size_t at = place.rfind('@'); at != std::string_view::npos) {
        const std::string_view who = place.substr(0, at);
        const std::size_t between = std::min(who.find(':'), who.size());
        read.user = decoded(who.substr(0, between));
        read.password = between < who.size() ? decoded(who.substr(between + 1)) : "";
        place.remove_prefix(at + 1);
    }
    if (std::string reason = readPlace(place, read); !reason.empty())
        return reason;
    if (const std::string_view target = text.substr(end, text.find('#') - end); !target.empty())
        read.target = (target.front() == '/' ? "" : "/") + std::string(target);
    url = read;
    return "";
}

} // namespace gateway
