// The address of a camera, as a person writes it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace gateway {

enum class Scheme { rtsp, rtsps, http, https };

struct CameraUrl {
    Scheme scheme = Scheme::rtsp;
    std::string host; // name or numeric address, IPv6 without brackets
    std::uint16_t port = 0;
    std::string target; // path and query, begins with "/"
    std::string user;   // percent-decoded; "": none in the URL
    std::string password;

    bool isRtsp() const { return scheme == Scheme::rtsp || scheme == Scheme::rtsps; }
    bool usesTls() const { return scheme == Scheme::rtsps || scheme == Scheme::https; }
    // Without user and password.
    std::string text() const;
    // "host:port", for messages.
    std::string place() const;
};

// Reads a URL. Returns "" or why it can't be used, without the URL itself, which may have a password.
std::string readCameraUrl(std::string_view text, CameraUrl& url);

} // namespace gateway
