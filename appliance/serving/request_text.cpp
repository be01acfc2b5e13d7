#include "appliance/serving/request_text.h"

#include "appliance/serving/text.h"

#include <algorithm>

namespace {

bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return c > ' ' && c < 0x7f &&
               std::string_view("()<>@,;:\\\"/[]?={}").find(c) == std::string_view::npos;
    });
}

std::string_view takeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    return line;
}

bool parseRequestLine(std::string_view line, Request& request) {
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == std::string_view::npos || last <= first)
        return false;
    const std::string_view method = line.substr(0, first);
    const std::string_view version = line.substr(last + 1);
    if (!isToken(method) || version.size() != 8 || version.substr(4, 3) != "/1.")
        return false;
    const std::string_view protocol = version.substr(0, 4);
    if ((protocol != "HTTP" && protocol != "RTSP") || version[7] < '0' || version[7] > '9')
        return false;
    request.method = method;
    request.target = trimmed(line.substr(first + 1, last - first - 1));
    request.protocol = protocol;
    request.minorVersion = version[7] - '0';
    return !request.target.empty() && request.target.find('\0') == std::string::npos;
}

} // namespace

std::optional<std::string_view> Request::header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (equalIgnoringCase(key, name))
            return value;
    }
    return std::nullopt;
}

std::string_view Request::path() const {
    std::string_view text = target;
    const std::size_t scheme = text.find("://");
    if (scheme != std::string_view::npos && scheme < text.find_first_of("/?")) {
        const std::size_t slash = text.find('/', scheme + 3);
        text = slash == std::string_view::npos ? std::string_view("/") : text.substr(slash);
    }
    return text.substr(0, text.find('?'));
}

std::string_view Request::query() const {
    const std::size_t mark = target.find('?');
    return mark == std::string::npos ? std::string_view{} : std::string_view(target).substr(mark + 1);
}

std::optional<std::size_t> headLength(std::string_view bytes) {
    std::size_t at = 0;
    while ((at = bytes.find('\n', at)) != std::string_view::npos) {
        ++at;
        if (bytes.substr(at, 1) == "\n")
            return at + 1;
        if (bytes.substr(at, 2) == "\r\n")
            return at + 2;
    }
    return std::nullopt;
}

std::optional<Request> parseHead(std::string_view head) {
    Request request;
    if (!parseRequestLine(takeLine(head), request))
        return std::nullopt;
    while (!head.empty()) {
        const std::string_view line = takeLine(head);
        if (line.empty())
            break;
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos || !isToken(line.substr(0, colon)) ||
            request.headers.size() == maxHeaders)
            return std::nullopt;
        request.headers.emplace_back(line.substr(0, colon), trimmed(line.substr(colon + 1)));
    }
    return request;
}

std::optional<std::string> queryField(std::string_view query, std::string_view name) {
    while (!query.empty()) {
        const std::string_view field = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(field.size() + 1, query.size()));
        const std::size_t equals = field.find('=');
        if (percentDecoded(field.substr(0, equals)) == name)
            return equals == std::string_view::npos ? std::string()
                                                    : percentDecoded(field.substr(equals + 1));
    }
    return std::nullopt;
}
