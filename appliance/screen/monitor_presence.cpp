#include "appliance/screen/monitor_presence.h"

#include "appliance/screen/screen_settings.h"

#include <libcommon/params.h>

#include <charconv>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <unistd.h>

namespace screen {
namespace {

constexpr const char* sizeName = "Screen.Info.Size";
constexpr const char* pidName = "Screen.Info.MonitorPid";
constexpr const char* startName = "Screen.Info.MonitorStart";

// When the process started, in clock ticks since the machine did; "" when there is no such process.
std::string startOf(const std::string& pid) {
    std::ifstream file("/proc/" + pid + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    // The program's name is in brackets and may have blanks; the start is the 20th word behind it.
    std::istringstream words(text.substr(std::min(text.size(), text.rfind(')') + 1)));
    std::string word;
    for (int i = 0; i < 20; ++i)
        words >> word;
    return words ? word : "";
}

bool isNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

std::optional<Size> anySize(const std::string& text) {
    Size size;
    const char* last = text.data() + text.size();
    const auto width = std::from_chars(text.data(), last, size.width);
    if (width.ec != std::errc() || width.ptr == last || *width.ptr != 'x')
        return std::nullopt;
    const auto height = std::from_chars(width.ptr + 1, last, size.height);
    const bool whole = height.ec == std::errc() && height.ptr == last;
    return whole && size.width > 0 && size.height > 0 ? std::optional(size) : std::nullopt;
}

} // namespace

void publishMonitor(Size size) {
    const ParamWrapper information(1, true);
    const std::string pid = std::to_string(getpid());
    information[startName] = startOf(pid).c_str();
    information[sizeName] = sizeText(size).c_str();
    information[pidName] = pid.c_str();
}

void withdrawMonitor() {
    const ParamWrapper information(1, true);
    if (information[pidName] == std::to_string(getpid()).c_str())
        information[pidName] = "";
}

std::optional<Size> runningMonitor(const ApplianceView& appliance) {
    const std::string pid = appliance.information(pidName);
    if (!isNumber(pid) || startOf(pid) != appliance.information(startName))
        return std::nullopt;
    return anySize(appliance.information(sizeName));
}

} // namespace screen
