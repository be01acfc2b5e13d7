#include "appliance/screen/monitor/connectors.h"

#include <algorithm>
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

} // namespace screen
