#include "appliance/serving/media_path.h"

#include "appliance/serving/text.h"

namespace {

constexpr std::string_view pathStart = "/mpeg4/";
constexpr std::string_view pathEnd = "/media.orv";
constexpr std::string_view quadName = "quad";

} // namespace

std::string mediaPathOf(int channel) {
    return std::string(pathStart) + (channel == 0 ? std::string(quadName) : std::to_string(channel)) +
           std::string(pathEnd);
}

std::optional<int> mediaChannelOf(std::string_view path) {
    if (!path.starts_with(pathStart))
        return std::nullopt;
    path.remove_prefix(pathStart.size());
    const std::string_view name = path.substr(0, path.find('/'));
    path.remove_prefix(name.size());
    if (!path.starts_with(pathEnd) || (path.size() > pathEnd.size() && path[pathEnd.size()] != '/'))
        return std::nullopt;
    return name == quadName ? std::optional<int>(0) : wholeNumber(name);
}

bool isTunnelRequest(const Request& request) {
    return request.header("x-sessioncookie").has_value() && mediaChannelOf(request.path()).has_value();
}
