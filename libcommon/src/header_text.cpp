#include "libcommon/src/header_text.h"

#include <libcommon/text.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace network {

using libcommon::trimmed;

namespace {

constexpr int packetHeaderLength = 3; // after the '$': channel, length high, length low

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isBinary(char c) {
    return (c >= 0 && c < ' ' && c != '\t' && c != '\r' && c != '\n') || c == '\x7f';
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

// What a header name may be made of: no separators, so that "a b: c" or "<html>" is no name.
bool isName(std::string_view name) {
    const auto belongs = [](char c) {
        return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               (c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos);
    };
    return !name.empty() && std::all_of(name.begin(), name.end(), belongs);
}

// The lines without their ends and the empty one; nothing when a carriage return stands inside a line.
std::optional<std::vector<std::string_view>> linesOf(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        if (line.find('\r') != std::string_view::npos)
            return std::nullopt;
        if (line.empty())
            break;
        lines.push_back(line);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

bool isNumber(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isDigit);
}

// "RTSP/1.0 200 OK"; the reason may be missing.
bool parseStatusLine(std::string_view line, ResponseHeader& header) {
    constexpr std::size_t codeLength = 3;
    const std::size_t slash = line.find('/');
    const std::size_t dot = line.find('.');
    const std::size_t blank = line.find(' ');
    if ((!line.starts_with("RTSP/") && !line.starts_with("HTTP/")) || dot > blank || blank == line.npos ||
        !isNumber(line.substr(slash + 1, dot - slash - 1)) ||
        !isNumber(line.substr(dot + 1, blank - dot - 1)))
        return false;
    const std::string_view rest = trimmed(line.substr(blank));
    const std::string_view code = rest.substr(0, codeLength);
    if (code.size() < codeLength || !isNumber(code) || code.front() == '0' ||
        (rest.size() > codeLength && !isBlank(rest[codeLength])))
        return false;
    header.statusCode = (code[0] - '0') * 100 + (code[1] - '0') * 10 + (code[2] - '0');
    header.reason = trimmed(rest.substr(codeLength));
    return true;
}

} // namespace

bool parseHeaderText(std::string_view text, ResponseHeader& header) {
    if (std::any_of(text.begin(), text.end(), isBinary))
        return false;
    const auto lines = linesOf(text);
    ResponseHeader parsed;
    if (!lines || lines->empty() || !parseStatusLine(lines->front(), parsed))
        return false;
    std::string* lastValue = nullptr; // what a folded line continues
    for (const std::string_view line : std::vector(lines->begin() + 1, lines->end())) {
        if (isBlank(line.front())) {
            if (lastValue == nullptr)
                return false;
            lastValue->append(" ").append(trimmed(line));
            continue;
        }
        const std::size_t colon = line.find(':');
        const std::string_view name = trimmed(line.substr(0, colon));
        if (colon == std::string_view::npos || !isName(name))
            return false;
        const std::string_view value = trimmed(line.substr(colon + 1));
        const auto [entry, isNew] = parsed.headers.try_emplace(istring(name.data(), name.size()), value);
        if (!isNew)
            entry->second.append(", ").append(value);
        lastValue = &entry->second;
    }
    header = std::move(parsed);
    return true;
}

std::size_t HeaderCollector::take(std::string_view bytes) {
    std::size_t taken = 0;
    while (taken < bytes.size() && state_ == State::Collecting) {
        if (packetHeaderLeft_ == 0 && packetLength_ > 0) {
            const std::size_t skipped = std::min<std::size_t>(packetLength_, bytes.size() - taken);
            packetLength_ -= static_cast<unsigned>(skipped);
            taken += skipped;
        } else {
            takeByte(bytes[taken++]);
        }
    }
    return taken;
}

void HeaderCollector::takeByte(char byte) {
    if (packetHeaderLeft_ > 0) {
        --packetHeaderLeft_;
        // The channel comes first and falls out of the 16 bits.
        packetLength_ = (packetLength_ << 8U | static_cast<unsigned char>(byte)) & 0xffffU;
    } else if (text_.empty()) {
        takeFirstByte(byte);
    } else {
        takeHeaderByte(byte);
    }
}

void HeaderCollector::takeFirstByte(char byte) {
    if (byte == '$') {
        packetHeaderLeft_ = packetHeaderLength;
        packetLength_ = 0;
    } else if (byte == '\r' || byte == '\n') {
        if (++blankBytes_ >= maximumHeaderLength)
            state_ = State::TooLong;
    } else {
        takeHeaderByte(byte);
    }
}

void HeaderCollector::takeHeaderByte(char byte) {
    text_ += byte;
    if (isBinary(byte) || !canBecomeHeader()) {
        state_ = State::Malformed;
        return;
    }
    if (byte == '\n') {
        std::string_view line = std::string_view(text_).substr(lineStart_);
        lineStart_ = text_.size();
        if (line == "\n" || line == "\r\n")
            state_ = State::Complete;
    }
    if (state_ == State::Collecting && text_.size() >= maximumHeaderLength)
        state_ = State::TooLong;
}

bool HeaderCollector::canBecomeHeader() const {
    constexpr std::string_view rtsp = "RTSP/";
    constexpr std::string_view http = "HTTP/";
    if (text_.size() > rtsp.size())
        return true; // it was looked at when it was shorter
    const std::string_view start = text_;
    return start == rtsp.substr(0, start.size()) || start == http.substr(0, start.size());
}

} // namespace network
