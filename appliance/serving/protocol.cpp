#include "appliance/serving/protocol.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array<std::string_view, 10> rtspMethods{"DESCRIBE",      "SETUP",        "PLAY",   "PAUSE",
                                                       "TEARDOWN",      "ANNOUNCE",     "RECORD", "REDIRECT",
                                                       "GET_PARAMETER", "SET_PARAMETER"};
constexpr std::string_view sharedMethod = "OPTIONS"; // of HTTP and RTSP: the end of the line decides
constexpr char interleavedPacket = '$';              // between RTSP requests; HTTP has nothing like it
constexpr std::size_t longestMethod = 16;

} // namespace

std::optional<Protocol> protocolOf(std::string_view start) {
    start.remove_prefix(std::min(start.find_first_not_of("\r\n"), start.size()));
    if (start.starts_with(interleavedPacket))
        return Protocol::Rtsp;
    const std::size_t lineEnd = start.find('\n');
    const std::string_view line = start.substr(0, lineEnd);
    const std::size_t blank = line.find(' ');
    const std::string_view method = line.substr(0, blank);
    if (blank == std::string_view::npos) {
        const bool mayGoOn = lineEnd == std::string_view::npos && method.size() < longestMethod;
        return mayGoOn ? std::nullopt : std::optional(Protocol::Http);
    }
    if (method != sharedMethod)
        return std::ranges::find(rtspMethods, method) == rtspMethods.end() ? Protocol::Http : Protocol::Rtsp;
    if (lineEnd == std::string_view::npos)
        return std::nullopt;
    return line.substr(line.rfind(' ')).starts_with(" RTSP/") ? Protocol::Rtsp : Protocol::Http;
}
