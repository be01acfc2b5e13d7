#include "appliance/streams/rtsp_message.h"

#include <algorithm>
#include <charconv>
#include <strings.h>
#include <utility>

namespace streams {
namespace {

constexpr std::size_t npos = std::string::npos;
constexpr std::size_t packetHeader = 4;

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// "RTSP/1.0 200 OK", "HTTP/1.0 200 OK", or "METHOD url RTSP/1.0".
bool readStartLine(std::string_view line, RtspMessage& message) {
    const std::size_t blank = line.find(' ');
    if (blank == npos)
        return false;
    if (line.starts_with("RTSP/") || line.starts_with("HTTP/")) {
        message.status = numberAt(line.substr(blank + 1));
        return message.status >= 100 && message.status <= 999;
    }
    message.method = line.substr(0, blank);
    return line.find("RTSP/") != npos;
}

bool readHeader(std::string_view header, RtspMessage& message) {
    bool first = true;
    while (!header.empty()) {
        const std::size_t end = std::min(header.find('\n'), header.size());
        const std::string_view line = trimmed(header.substr(0, end));
        header.remove_prefix(std::min(end + 1, header.size()));
        const std::size_t colon = line.find(':');
        if (std::exchange(first, false)) {
            if (!readStartLine(line, message))
                return false;
        } else if (colon != npos) {
            message.headers.emplace(istring(line.data(), colon), trimmed(line.substr(colon + 1)));
        }
    }
    return !first;
}

} // namespace

std::string RtspMessage::header(const char* name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

std::vector<std::string> RtspMessage::challenges() const {
    std::vector<std::string> found;
    const auto [first, last] = headers.equal_range("WWW-Authenticate");
    for (auto one = first; one != last; ++one)
        found.push_back(one->second);
    return found;
}

int RtspMessage::sequence() const {
    return numberAt(header("CSeq"));
}

RtspReader::RtspReader(RtspEvents events) : events_(std::move(events)) {}

bool RtspReader::feed(const char* bytes, std::size_t count) {
    if (broken_)
        return false;
    buffer_.append(bytes, count);
    while (!broken_ && !waiting().empty() && step()) {
    }
    buffer_.erase(0, start_);
    start_ = 0;
    return !broken_;
}

// False: more bytes are needed.
bool RtspReader::step() {
    const char first = buffer_[start_];
    if (first == '$')
        return takePacket();
    // Some servers send an extra line end after a body.
    if (first == '\r' || first == '\n') {
        ++start_;
        return true;
    }
    return takeMessage();
}

bool RtspReader::takePacket() {
    const std::string_view bytes = waiting();
    if (bytes.size() < packetHeader)
        return false;
    const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(bytes[at]); };
    const std::size_t length = static_cast<std::size_t>(byte(2) << 8 | byte(3));
    if (bytes.size() < packetHeader + length)
        return false;
    start_ += packetHeader + length;
    events_.packet(byte(1), bytes.substr(packetHeader, length));
    return true;
}

bool RtspReader::takeMessage() {
    const std::string_view bytes = waiting();
    const std::size_t crlf = bytes.find("\r\n\r\n");
    const std::size_t bare = bytes.find("\n\n");
    const std::size_t end = std::min(crlf, bare);
    if (end == npos || end > headerLimit) {
        broken_ = bytes.size() > headerLimit;
        return false;
    }
    RtspMessage message;
    if (!readHeader(bytes.substr(0, end), message)) {
        broken_ = true;
        return false;
    }
    // The answer that opens a tunnel may have a Content-Length, but what follows is the content of the tunnel.
    const bool tunnel = message.header("Content-Type") == "application/x-rtsp-tunnelled";
    const std::string told = tunnel ? "" : message.header("Content-Length");
    const int length = told.empty() ? 0 : numberAt(told);
    if (length < 0 || static_cast<std::size_t>(length) > bodyLimit) {
        broken_ = true;
        return false;
    }
    const std::size_t start = end + (end == crlf ? 4 : 2);
    if (bytes.size() < start + static_cast<std::size_t>(length))
        return false;
    message.body = bytes.substr(start, static_cast<std::size_t>(length));
    start_ += start + static_cast<std::size_t>(length);
    events_.message(std::move(message));
    return true;
}

std::string parameterIn(std::string_view list, std::string_view name) {
    while (!list.empty()) {
        const std::size_t end = std::min(list.find(';'), list.size());
        const std::string_view one = trimmed(list.substr(0, end));
        list.remove_prefix(std::min(end + 1, list.size()));
        if (one.size() > name.size() && one[name.size()] == '=' &&
            strncasecmp(one.data(), name.data(), name.size()) == 0)
            return std::string(one.substr(name.size() + 1));
    }
    return "";
}

int numberAt(std::string_view text) {
    text = trimmed(text);
    int number = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && number >= 0 ? number : -1;
}

} // namespace streams
