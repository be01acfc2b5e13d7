// HTTP and RTSP requests as text; both have the same form. Parsing only, no sockets.
//
// Parsing is lenient because real clients are sloppy. The target is all text between the method and the last
// blank before the protocol, so a preset name with blanks arrives complete. A line may end in a bare line feed.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct Request {
    std::string method;
    std::string target;   // exactly as sent
    std::string protocol; // "HTTP" or "RTSP"
    int minorVersion = 0; // 1 in "HTTP/1.1"; other major versions than 1 are refused
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;

    // The first header of that name (case does not matter), or nothing.
    std::optional<std::string_view> header(std::string_view name) const;

    // The target without its query and without a leading "scheme://host:port".
    std::string_view path() const;
    // The text after the first "?", or "".
    std::string_view query() const;
};

constexpr std::size_t maxHeadBytes = 16 * 1024;
constexpr std::size_t maxHeaders = 100;

// The length of the head in `bytes`, empty line included. Nothing while the head is incomplete.
std::optional<std::size_t> headLength(std::string_view bytes);

// Parses a complete head. Nothing if it is not an HTTP or RTSP request.
std::optional<Request> parseHead(std::string_view head);

// The value of a query field, percent-decoded, or nothing. "a=1&b" has the fields "a" and "b" (empty).
std::optional<std::string> queryField(std::string_view query, std::string_view name);
