#include "appliance/streams/http_answer.h"

#include <libcommon/istring.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <utility>

namespace streams {
namespace {

constexpr std::size_t npos = std::string_view::npos;
constexpr std::size_t longestChunkLine = 1024;

using Headers = std::map<istring, std::string>;

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    return first == npos ? std::string_view{}
                         : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// The status of "HTTP/1.1 200 OK"; 0: this is no such line.
int statusOf(std::string_view line) {
    int status = 0;
    if (!line.starts_with("HTTP/1.") || line.size() < 12 || line[8] != ' ')
        return 0;
    const auto [end, error] = std::from_chars(line.data() + 9, line.data() + 12, status);
    return error == std::errc() && end == line.data() + 12 && status >= 100 ? status : 0;
}

Headers headersOf(std::string_view lines) {
    Headers headers;
    while (!lines.empty()) {
        const std::size_t end = std::min(lines.find('\n'), lines.size());
        const std::string_view line = lines.substr(0, end);
        lines.remove_prefix(std::min(end + 1, lines.size()));
        const std::size_t colon = line.find(':');
        if (colon != npos)
            headers.emplace(istring(line.data(), colon), trimmed(line.substr(colon + 1)));
    }
    return headers;
}

std::string valueOf(const Headers& headers, const char* name) {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

// The header's length with the empty line at its end; npos: it is not complete.
std::size_t headerLength(std::string_view bytes, std::size_t from) {
    for (std::size_t at = bytes.find('\n', from); at != npos; at = bytes.find('\n', at + 1)) {
        const std::string_view rest = bytes.substr(at + 1);
        if (rest.starts_with('\n'))
            return at + 2;
        if (rest.starts_with("\r\n"))
            return at + 3;
    }
    return npos;
}

} // namespace

HttpAnswer::HttpAnswer(Begin begin, Body body) : begin_(std::move(begin)), body_(std::move(body)) {}

bool HttpAnswer::fail(const char* fault) {
    fault_ = fault;
    return false;
}

bool HttpAnswer::feed(const char* bytes, std::size_t count) {
    std::string_view rest(bytes, count);
    std::string afterHeader;
    if (place_ == Place::header) {
        buffer_.append(rest);
        if (!takeHeader())
            return false;
        if (place_ == Place::header)
            return true;
        afterHeader.swap(buffer_);
        rest = afterHeader;
    }
    while (!rest.empty())
        if (!takeBody(rest))
            return false;
    return endless_ || place_ != Place::body || left_ > 0;
}

// Leaves in the buffer what follows the header.
bool HttpAnswer::takeHeader() {
    while (place_ == Place::header) {
        const std::size_t length = headerLength(buffer_, 0);
        if (length == npos)
            return buffer_.size() <= headerLimit ? true : fail("the response header is too long");
        if (length > headerLimit)
            return fail("the response header is too long");
        const std::string header = buffer_.substr(0, length);
        buffer_.erase(0, length);
        if (!beginBody(header))
            return false;
    }
    return true;
}

bool HttpAnswer::beginBody(std::string_view header) {
    const std::size_t firstLine = header.find('\n');
    const int status = statusOf(header.substr(0, firstLine));
    if (status == 0)
        return fail("the answer is not HTTP");
    if (status < 200 && status != 101)
        return true; // the answer proper follows
    const Headers headers = headersOf(header.substr(firstLine + 1));
    const std::string coding = valueOf(headers, "Transfer-Encoding");
    const std::string length = valueOf(headers, "Content-Length");
    if (istring(coding.data(), coding.size()) == "chunked") {
        place_ = Place::chunkSize;
    } else if (!coding.empty() && istring(coding.data(), coding.size()) != "identity") {
        return fail("the body has an unknown transfer coding");
    } else {
        place_ = Place::body;
        endless_ = length.empty();
        const auto [end, error] = std::from_chars(length.data(), length.data() + length.size(), left_);
        if (!endless_ && (error != std::errc() || end != length.data() + length.size()))
            return fail("the Content-Length can't be read");
    }
    return begin_(status, valueOf(headers, "Content-Type"));
}

bool HttpAnswer::takeBody(std::string_view& bytes) {
    if (place_ == Place::chunkSize || place_ == Place::chunkEnd || place_ == Place::trailer)
        return takeLine(bytes);
    const std::size_t count = endless_ ? bytes.size() : std::min(left_, bytes.size());
    if (count > 0 && !body_(bytes.data(), count))
        return false;
    bytes.remove_prefix(count);
    left_ -= endless_ ? 0 : count;
    if (left_ > 0 || endless_)
        return true;
    if (place_ == Place::body)
        return false; // complete
    place_ = Place::chunkEnd;
    return true;
}

bool HttpAnswer::takeLine(std::string_view& bytes) {
    const std::size_t end = bytes.find('\n');
    buffer_.append(bytes.substr(0, end));
    if (buffer_.size() > longestChunkLine)
        return fail("a chunk of the body can't be read");
    bytes.remove_prefix(end == npos ? bytes.size() : end + 1);
    return end == npos || takeChunkLine();
}

bool HttpAnswer::takeChunkLine() {
    const std::string line = std::exchange(buffer_, {});
    const std::string_view text = trimmed(line);
    if (place_ == Place::trailer)
        return !text.empty(); // an empty line ends the body
    if (place_ == Place::chunkEnd) {
        place_ = Place::chunkSize;
        return text.empty() ? true : fail("a chunk of the body can't be read");
    }
    const std::string_view digits = trimmed(text.substr(0, text.find(';')));
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), left_, 16);
    if (error != std::errc() || digits.empty() || end != digits.data() + digits.size())
        return fail("a chunk of the body can't be read");
    place_ = left_ == 0 ? Place::trailer : Place::chunk;
    return true;
}

} // namespace streams
