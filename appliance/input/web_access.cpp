#include "appliance/input/web_access.h"

#include "appliance/input/av_objects.h"

#include <algorithm>
#include <cerrno>
#include <netdb.h>
#include <string_view>
#include <sys/socket.h>

namespace input {
namespace {

// What libavformat decodes again.
std::string encoded(std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z'))
            result += c;
        else
            result += {'%', digits[byte >> 4], digits[byte & 15]};
    }
    return result;
}

std::size_t behindScheme(const std::string& url) {
    return std::min(url.find("://") + 3, url.size());
}

} // namespace

WebAccess::WebAccess(const Request& request) : request_(request), form_(request.form) {}

std::string WebAccess::url() const {
    std::string url = request_.place;
    if (!request_.user.empty() || !request_.password.empty())
        url.insert(behindScheme(url), encoded(request_.user) + ":" + encoded(request_.password) + "@");
    return url;
}

std::string WebAccess::place() const {
    const std::size_t start = behindScheme(request_.place);
    return request_.place.substr(start, request_.place.find_first_of("/?", start) - start);
}

std::string WebAccess::whyNoAddress() const {
    std::string host = place();
    host.resize(std::min(host.rfind(':'), host.size()));
    if (host.starts_with('['))
        host = host.substr(1, host.find(']') - 1);
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &wanted, &found) != 0)
        return "the name " + host + " is unknown";
    freeaddrinfo(found);
    return "";
}

const char* WebAccess::protocols() const {
    switch (form_) {
    case WebForm::session:
        return "http,https,tcp,tls,rtp,udp";
    case WebForm::playlist:
        return "http,https,tcp,tls,crypto";
    case WebForm::none:
    case WebForm::file:
        break;
    }
    return "http,https,tcp,tls";
}

const char* WebAccess::formats() const {
    switch (form_) {
    case WebForm::session:
        return "sdp";
    case WebForm::playlist:
        return "hls,mpegts,mov,mp4,aac,mp3,ac3,eac3,webvtt";
    case WebForm::none:
    case WebForm::file:
        break;
    }
    return "mov,mp4,matroska,webm,mpegts,mpeg,avi,flv";
}

std::map<std::string, std::string> WebAccess::openOptions() const {
    std::map<std::string, std::string> options{{"format_whitelist", formats()}};
    if (form_ == WebForm::session) {
        options["fflags"] = "nobuffer";
        options["analyzeduration"] = "1000000";
        options["max_delay"] = "100000"; // microseconds that a missing packet is waited for
    }
    return options;
}

std::map<std::string, std::string> WebAccess::connectionOptions() const {
    std::map<std::string, std::string> options{{"user_agent", "camera-gateway"}};
    if (form_ == WebForm::file)
        options["reconnect"] =
            "1"; // servers end a connection whose reader takes the bytes at a video's own speed
    // libav checks nothing unless it is told to, and hands such options to the segments of a playlist in no version.
    options["tls_verify"] = request_.verified ? "1" : "0";
    if (request_.verified && !request_.authorities.empty())
        options["ca_file"] = request_.authorities;
    return options;
}

std::string WebAccess::reasonForStatus(int error) const {
    switch (error) {
    case AVERROR_HTTP_UNAUTHORIZED:
        return place() + (request_.user.empty() ? " asks for a user name and a password"
                                                : " refuses the user name or password");
    case AVERROR_HTTP_FORBIDDEN:
        return place() + " forbids the stream to this user";
    case AVERROR_HTTP_NOT_FOUND:
        return place() + " has no stream at this path";
    case AVERROR_HTTP_BAD_REQUEST:
    case AVERROR_HTTP_OTHER_4XX:
    case AVERROR_HTTP_SERVER_ERROR:
        return place() + " refuses the request: " + avError(error);
    case AVERROR(ECONNREFUSED):
        return place() + " refuses connections";
    default:
        return "";
    }
}

bool WebAccess::isOtherForm(int error) {
    return error == AVERROR_INVALIDDATA || error == AVERROR(EINVAL);
}

std::string WebAccess::reasonFor(int error, bool silent, bool answered) const {
    if (silent && answered && form_ == WebForm::session)
        return "no packets come of the stream that the SDP file of " + place() + " announces";
    if (silent || error == AVERROR(ETIMEDOUT))
        return place() + " does not answer";
    if (const std::string reason = reasonForStatus(error); !reason.empty())
        return reason;
    if (error == AVERROR(EHOSTUNREACH) || error == AVERROR(ENETUNREACH))
        return "no route to " + place();
    if (isOtherForm(error))
        return "what " + place() + " sends can't be read as video";
    if (error == AVERROR(EIO) && isSecure())
        return "no connection to " + place() + ", or its certificate is refused";
    return "no connection to " + place() + ": " + avError(error);
}

} // namespace input
