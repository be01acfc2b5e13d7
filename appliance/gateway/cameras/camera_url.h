// The address of a camera, as a person writes it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace gateway {

enum class Scheme { rtsp, rtsps, http, https, srt, file, device };

struct CameraUrl {
    Scheme scheme = Scheme::rtsp;
    std::string host; // name or numeric address, IPv6 without brackets; "" for file and device
    std::uint16_t port = 0;
    std::string target;   // path and query, begins with "/"; of a file or device its path, percent-decoded
    std::string user;     // percent-decoded; "": none in the URL
    std::string password; // of SRT: its passphrase

    bool isRtsp() const { return scheme == Scheme::rtsp || scheme == Scheme::rtsps; }
    bool isHttp() const { return scheme == Scheme::http || scheme == Scheme::https; }
    bool isMotionJpeg() const; // over HTTP, as far as the URL says: its end is that of nothing else
    bool isAtThisMachine() const { return scheme == Scheme::file || scheme == Scheme::device; }
    bool usesTls() const { return scheme == Scheme::rtsps || scheme == Scheme::https; }
    // Without user and password; reading it gives the same URL again.
    std::string text() const;
    // "host:port", or the path at this machine, for messages.
    std::string place() const;
};

// Reads a URL. A path without a scheme is a file, or a camera in /dev. Returns "" or why it can't be used, without the URL
// itself, which may have a password.
std::string readCameraUrl(std::string_view text, CameraUrl& url);

} // namespace gateway
