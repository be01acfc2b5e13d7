#include "appliance/bug_report/processes.h"

#include "appliance/bug_report/part.h"

#include <libcommon/text.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <iomanip>
#include <sstream>

namespace bug_report {
namespace {

constexpr std::size_t longestName = 15; // of a process, in the kernel
constexpr std::size_t mostBytes = 64 * 1024;

bool isOurs(std::string_view name) {
    return std::ranges::any_of(
        programNames(), [&](const std::string& known) { return known.substr(0, longestName) == name; });
}

std::string fileOrNothing(const std::string& path) {
    try {
        return endOfFile(path, mostBytes);
    } catch (const std::exception&) {
        return ""; // the process has ended, or belongs to another user
    }
}

void addLine(std::ostream& table, const std::string& folder, const std::string& pid) {
    const std::string text = fileOrNothing(folder + "/status");
    const std::string name = statusValue(text, "Name");
    if (!isOurs(name))
        return;
    const auto value = [&](std::string_view key) { return statusValue(text, key); };
    table << std::left << std::setw(8) << pid << std::setw(8) << value("PPid") << std::setw(17) << name
          << std::setw(16) << value("State") << std::setw(8) << value("Threads") << std::setw(12)
          << value("VmRSS") << libcommon::printable(fileOrNothing(folder + "/wchan")) << '\n';
}

bool isNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

} // namespace

const std::vector<std::string>& programNames() {
    static const std::vector<std::string> names{"skelmor",         "mjpeg_player",    "unicastplayer",
                                                "multicastplayer", "mpeg4player",     "camera-gateway",
                                                "decoder-address", "decoder-monitor", "decoder-panel",
                                                "decoder-mqtt",    "camera-input",    "decoderctl"};
    return names;
}

std::string statusValue(std::string_view text, std::string_view name) {
    const std::string key = std::string(name) + ':';
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(key))
            return std::string(libcommon::trimmed(std::string_view(line).substr(key.size())));
    }
    return "";
}

std::string processTable(const std::string& proc) {
    std::ostringstream table;
    table << "pid     parent  program          state           threads memory      waits in\n";
    for (const auto& entry : std::filesystem::directory_iterator(proc)) {
        const std::string pid = entry.path().filename().string();
        if (isNumber(pid))
            addLine(table, entry.path().string(), pid);
    }
    return table.str();
}

} // namespace bug_report
