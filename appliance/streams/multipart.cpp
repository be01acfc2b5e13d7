#include "appliance/streams/multipart.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <strings.h>
#include <utility>

namespace streams {
namespace {

constexpr std::size_t npos = std::string::npos;
constexpr std::size_t boundaryLimit = 200;

std::string boundaryOf(std::string_view contentType) {
    constexpr std::string_view key = "boundary=";
    const auto found =
        std::search(contentType.begin(), contentType.end(), key.begin(), key.end(),
                    [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; });
    if (found == contentType.end())
        return "";
    std::string_view value =
        contentType.substr(static_cast<std::size_t>(found - contentType.begin()) + key.size());
    if (value.starts_with('"'))
        value = value.substr(1, value.find('"', 1) - 1);
    else
        value = value.substr(0, value.find_first_of("; \t\r\n"));
    // Some encoders give the boundary with the dashes that precede it in the body.
    if (value.starts_with("--"))
        value.remove_prefix(2);
    return value.empty() || value.size() > boundaryLimit ? "" : "--" + std::string(value);
}

// The value of Content-Length in a part's header; npos without a valid one.
std::size_t lengthIn(std::string_view header) {
    constexpr std::string_view name = "content-length:";
    while (!header.empty()) {
        std::string_view line = header.substr(0, header.find('\n'));
        header.remove_prefix(std::min(line.size() + 1, header.size()));
        if (line.size() < name.size() || strncasecmp(line.data(), name.data(), name.size()) != 0)
            continue;
        line.remove_prefix(name.size());
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        std::size_t length = 0;
        const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), length);
        return error == std::errc{} ? length : npos;
    }
    return npos;
}

} // namespace

MultipartReader::MultipartReader(std::string_view contentType, std::function<void(std::string_view)> part)
    : part_(std::move(part)), boundary_(boundaryOf(contentType)) {}

void MultipartReader::feed(const char* bytes, std::size_t count) {
    // In pieces, so that the buffer stays bounded for any count.
    constexpr std::size_t piece = 256 * 1024;
    for (std::size_t at = 0; at < count; at += piece) {
        buffer_.append(bytes + at, std::min(piece, count - at));
        while (step()) {
        }
    }
}

// False: more bytes are needed.
bool MultipartReader::step() {
    switch (place_) {
    case Place::beforePart:
        return findBoundary();
    case Place::inHeader:
        return readHeader();
    case Place::inBody:
        return readBody();
    }
    return false;
}

void MultipartReader::drop(std::size_t count) {
    buffer_.erase(0, count);
    searched_ = 0;
}

bool MultipartReader::findBoundary() {
    if (boundary_.empty()) {
        // The content type has no boundary: the first line that begins with two dashes is the boundary.
        const std::size_t dashes = buffer_.starts_with("--") ? 0 : buffer_.find("\n--");
        const std::size_t start = dashes == npos ? npos : buffer_.find("--", dashes);
        const std::size_t end = start == npos ? npos : buffer_.find_first_of("\r\n", start);
        if (end != npos && end - start > 2 && end - start <= boundaryLimit) {
            boundary_ = buffer_.substr(start, end - start);
        } else {
            if (buffer_.size() > headerLimit)
                drop(buffer_.size() - boundaryLimit);
            return false;
        }
    }
    const std::size_t found = buffer_.find(boundary_);
    if (found == npos) {
        if (buffer_.size() > boundary_.size())
            drop(buffer_.size() - boundary_.size());
        return false;
    }
    const std::size_t lineEnd = buffer_.find('\n', found);
    if (lineEnd == npos) {
        if (buffer_.size() - found > headerLimit)
            drop(found + boundary_.size());
        else
            drop(found);
        return false;
    }
    drop(lineEnd + 1);
    place_ = Place::inHeader;
    return true;
}

bool MultipartReader::readHeader() {
    if (buffer_.empty())
        return false;
    // A part without a header begins with the empty line.
    const std::size_t none = buffer_.starts_with("\r\n") ? 2 : buffer_.starts_with('\n') ? 1 : 0;
    if (none != 0) {
        length_ = npos;
        drop(none);
        place_ = Place::inBody;
        return true;
    }
    const std::size_t crlf = buffer_.find("\r\n\r\n");
    const std::size_t bare = buffer_.find("\n\n");
    const std::size_t end = std::min(crlf, bare);
    if (end == npos || end > headerLimit) {
        if (buffer_.size() <= headerLimit)
            return false;
        ++skipped_;
        place_ = Place::beforePart;
        return true;
    }
    length_ = lengthIn(std::string_view(buffer_).substr(0, end + 1));
    drop(end + (end == crlf ? 4 : 2));
    place_ = Place::inBody;
    if (length_ != npos && length_ > partLimit) {
        ++skipped_;
        place_ = Place::beforePart;
    }
    return true;
}

bool MultipartReader::readBody() {
    if (length_ != npos) {
        if (buffer_.size() < length_)
            return false;
        return takeBody(length_, length_);
    }
    const std::size_t next = boundaryAfter(searched_);
    if (next == npos) {
        searched_ = buffer_.size() - std::min(buffer_.size(), boundary_.size());
        if (buffer_.size() <= partLimit)
            return false;
        ++skipped_;
        place_ = Place::beforePart;
        return true;
    }
    std::size_t end = next;
    if (end > 0 && buffer_[end - 1] == '\n')
        --end;
    if (end > 0 && buffer_[end - 1] == '\r')
        --end;
    return takeBody(end, next);
}

std::size_t MultipartReader::boundaryAfter(std::size_t start) const {
    return buffer_.find(boundary_, start);
}

bool MultipartReader::takeBody(std::size_t length, std::size_t consumed) {
    if (length <= partLimit)
        part_(std::string_view(buffer_).substr(0, length));
    else
        ++skipped_;
    drop(consumed);
    place_ = Place::beforePart;
    return true;
}

} // namespace streams
