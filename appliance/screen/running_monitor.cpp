#include "appliance/screen/running_monitor.h"

#include <array>
#include <charconv>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>

namespace screen {
namespace {

constexpr int mostSide = 16'384; // of any display; a larger number is a mistake

// When the process started, as /proc/PID/stat has it; "" when it has ended.
std::string startOf(const std::string& pid) {
    std::ifstream file("/proc/" + pid + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    // The program's name is in brackets and may have blanks. Behind it is the state, and 19 words later the start.
    const std::size_t bracket = text.rfind(')');
    if (bracket == std::string::npos)
        return "";
    std::istringstream words(text.substr(bracket + 1));
    std::array<std::string, 20> word;
    for (std::string& next : word)
        words >> next;
    const bool ended = word.front() == "Z" || word.front() == "X";
    return ended ? "" : word.back();
}

bool isNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

int sideOf(std::string_view text) {
    int side = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), side);
    return error == std::errc() && end == text.data() + text.size() && side <= mostSide ? side : 0;
}

// Of any display, also of one that Screen.Size does not allow.
std::optional<Size> sizeOf(std::string_view text) {
    const std::size_t times = text.find('x');
    if (times == std::string_view::npos)
        return std::nullopt;
    const Size size{sideOf(text.substr(0, times)), sideOf(text.substr(times + 1))};
    return size.width > 0 && size.height > 0 ? std::optional(size) : std::nullopt;
}

} // namespace

std::optional<Size> runningMonitor(const ApplianceView& appliance) {
    const std::string pid = appliance.information("Screen.Info.MonitorPid");
    if (!isNumber(pid))
        return std::nullopt;
    const std::string start = startOf(pid);
    if (start.empty() || start != appliance.information("Screen.Info.MonitorStart"))
        return std::nullopt;
    return sizeOf(appliance.information("Screen.Info.Size"));
}

} // namespace screen
