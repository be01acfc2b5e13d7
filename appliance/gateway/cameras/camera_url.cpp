#include "appliance/gateway/cameras/camera_url.h"

#include "appliance/input/protocol/web_source.h"

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
constexpr std::array<SchemeRow, 6> schemes{{{"rtsp", Scheme::rtsp, 554},
                                            {"rtsps", Scheme::rtsps, 322},
                                            {"http", Scheme::http, 80},
                                            {"https", Scheme::https, 443},
                                            {"srt", Scheme::srt, 0}, // SRT has no usual port
                                            {"file", Scheme::file, 0}}};
constexpr std::string_view deviceFolder = "/dev/";
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

// What decoded() reads back.
std::string encoded(std::string_view path) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= ' ' || byte >= 0x7f || std::string_view("%#?\"<>").find(c) != std::string_view::npos)
            result += {'%', digits[byte >> 4], digits[byte & 15]};
        else
            result += c;
    }
    return result;
}

// "/path", "///path" or "//localhost/path" of a file URL, or a path as such.
std::string readPath(std::string_view text, bool isUrl, CameraUrl& url) {
    for (const std::string_view host : {"//localhost/", "///"}) {
        if (isUrl && text.starts_with(host)) {
            text.remove_prefix(host.size() - 1);
            break;
        }
    }
    if (!text.starts_with('/') || text.starts_with("//"))
        return "the URL of a file has three slashes and the whole path: file:///media/clip.mp4";
    const std::string path = isUrl ? decoded(text.substr(0, text.find_first_of("?#"))) : std::string(text);
    if (std::ranges::any_of(path, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7f; }))
        return "the path has a control character";
    if (path.ends_with('/'))
        return "the path is that of a folder";
    url = {.scheme = path.starts_with(deviceFolder) ? Scheme::device : Scheme::file,
           .host = {},
           .port = 0,
           .target = path,
           .user = {},
           .password = {}};
    return "";
}

// SRT has a passphrase among its options, and no user name.
std::string readSrt(CameraUrl& url) {
    if (url.port == 0)
        return "the URL has no port; SRT needs one: srt://camera:9000";
    if (!url.user.empty() || !url.password.empty())
        return "SRT has no user names; its passphrase is an option: srt://camera:9000?passphrase=...";
    constexpr std::string_view name = "passphrase=";
    const std::size_t question = url.target.find('?');
    std::string rest;
    for (std::size_t at = question; at < url.target.size();) {
        const std::size_t end = std::min(url.target.find('&', at + 1), url.target.size());
        const std::string_view option = std::string_view(url.target).substr(at + 1, end - at - 1);
        if (option.starts_with(name))
            url.password = decoded(option.substr(name.size()));
        else if (!option.empty())
            rest.append(rest.empty() ? "?" : "&").append(option);
        at = end;
    }
    url.target = url.target.substr(0, question) + rest;
    return "";
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

bool CameraUrl::isMotionJpeg() const {
    return isHttp() && input::webFormOf(target) == input::WebForm::none;
}

std::string CameraUrl::place() const {
    if (isAtThisMachine())
        return target;
    const bool bracketed = host.find(':') != std::string::npos;
    return (bracketed ? "[" : "") + host + (bracketed ? "]" : "") + ":" + std::to_string(port);
}

std::string CameraUrl::text() const {
    if (scheme == Scheme::device)
        return target;
    if (scheme == Scheme::file)
        return "file://" + encoded(target);
    const auto* const row =
        std::ranges::find_if(schemes, [&](const SchemeRow& one) { return one.scheme == scheme; });
    return std::string(row->name) + "://" + place() + target;
}

std::string readCameraUrl(std::string_view text, CameraUrl& url) {
    if (text.size() > longestUrl)
        return "the URL is longer than " + std::to_string(longestUrl) + " bytes";
    if (text.starts_with('/'))
        return readPath(text, false, url);
    if (hasControl(text))
        return "the URL has a blank or a control character; write %20 for a blank";
    const std::size_t colon = text.find(':');
    const SchemeRow* row = colon == std::string_view::npos ? nullptr : rowOf(text.substr(0, colon));
    if (row != nullptr && row->scheme == Scheme::file)
        return readPath(text.substr(colon + 1), true, url);
    if (row == nullptr || !text.substr(colon).starts_with("://"))
        return "the URL begins with none of rtsp://, rtsps://, http://, https://, srt:// and file://, and is "
               "not a path";
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
    if (std::string reason = read.scheme == Scheme::srt ? readSrt(read) : ""; !reason.empty())
        return reason;
    url = read;
    return "";
}

} // namespace gateway
