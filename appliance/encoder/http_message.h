// Requests of HTTP and RTSP as text: both have the same shape. Pure parsing, no sockets.
//
// Parsing is lenient where real clients are: the target is everything between the method and the last blank
// before the protocol's name, so a preset name with blanks in it arrives whole; a line may end in a bare line
// feed.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct Request {
    std::string method;
    std::string target;   // as it was sent
    std::string protocol; // "HTTP" or "RTSP"
    int minorVersion = 0; // 1 of "HTTP/1.1"; HTTP/0.9 and other major versions are no requests
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;

    // The first header of that name, whatever its case; nothing when there is none.
    std::optional<std::string_view> header(std::string_view name) const;

    // The target without its query; of an absolute target ("rtsp://host:port/path") only the path.
    std::string_view path() const;
    // What follows the first "?", or "".
    std::string_view query() const;
};

constexpr std::size_t maxHeadBytes = 16 * 1024;
constexpr std::size_t maxHeaders = 100;

// Where the head ends in `bytes` (past its empty line), or nothing while it is incomplete.
std::optional<std::size_t> headLength(std::string_view bytes);

// Reads a head that headLength() has measured. Nothing when it is not one of HTTP or RTSP.
std::optional<Request> parseHead(std::string_view head);

// A field of a query, percent-decoded, or nothing. "a=1&b" has the fields "a" and "b" (empty).
std::optional<std::string> queryField(std::string_view query, std::string_view name);

// Percent-decoding; a "%" that no two hexadecimal digits follow stays as it is.
std::string percentDecoded(std::string_view text);

// A decimal number of at most nine digits and nothing else.
std::optional<int> wholeNumber(std::string_view text);

bool equalIgnoringCase(std::string_view left, std::string_view right);
std::string_view trimmed(std::string_view text);

// A text as a JSON string with its quotes. Bytes that are not UTF-8's ASCII part are taken for Latin-1.
std::string jsonText(std::string_view text);
