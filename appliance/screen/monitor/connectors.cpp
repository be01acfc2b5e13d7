#include "appliance/screen/monitor/connectors.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

namespace screen {
namespace {

std::string firstLine(const std::filesystem::path& file) {
    std::string line;
    std::ifstream in(file);
    std::getline(in, line);
    return line;
}

} // namespace

std::string connectorsText(const std::string& folder) {
    std::vector<std::string> lines;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
        if (firstLine(entry.path() / "status") == "connected")
            lines.push_back(entry.path().filename().string() + ' ' + firstLine(entry.path() / "modes") +
                            '\n');
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines)
        text += line;
    return text;
}

std::optional<Size> soleDisplay(const std::string& folder) {
    const std::string text = connectorsText(folder);
    Size mode;
    int end = 0;
    if (std::count(text.begin(), text.end(), '\n') != 1 ||
        std::sscanf(text.c_str(), "%*s %5dx%5d\n%n", &mode.width, &mode.height, &end) != 2 ||
        static_cast<std::size_t>(end) != text.size() || mode.width < 1 || mode.height < 1)
        return std::nullopt;
    return mode;
}

} // namespace screen
