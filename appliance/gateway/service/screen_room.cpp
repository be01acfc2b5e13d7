#include "appliance/gateway/service/screen_room.h"

#include <libcommon/params.h>

#include <charconv>
#include <optional>
#include <string_view>
#include <unistd.h>

namespace gateway {
namespace {

struct Room {
    int width;
    int height;
};
constexpr Room largestSmall{960, 576};

std::optional<int> numberIn(std::string_view text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc{} && end == text.data() + text.size() && number > 0;
    return whole ? std::optional(number) : std::nullopt;
}

std::optional<Room> roomIn(std::string_view text) {
    const std::size_t times = text.find('x');
    if (times == std::string_view::npos)
        return std::nullopt;
    const auto width = numberIn(text.substr(0, times));
    const auto height = numberIn(text.substr(times + 1));
    return width && height ? std::optional(Room{*width, *height}) : std::nullopt;
}

bool runs(const std::string& pid) {
    return numberIn(pid) && access(("/proc/" + pid).c_str(), F_OK) == 0;
}

} // namespace

bool isSmallScreen(const ScreenTexts& texts) {
    for (const std::string* text : {&texts.tile, &texts.size, &texts.monitor}) {
        if (const auto room = roomIn(*text))
            return room->width <= largestSmall.width && room->height <= largestSmall.height;
    }
    return true; // 720x576 or 720x480
}

ScreenTexts readScreenTexts() {
    const ParamWrapper parameters(0, false);
    const ParamWrapper information(1, false);
    ScreenTexts texts;
    // A tile process that was killed leaves its values behind.
    if (runs(information["Screen.Info.TilePid"].toString()))
        texts.tile = information["Screen.Info.TileSize"].toString();
    texts.size = parameters["Screen.Size"].toString();
    texts.monitor = information["Screen.Info.Size"].toString();
    return texts;
}

} // namespace gateway
