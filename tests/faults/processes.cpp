#include "tests/faults/processes.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <unistd.h>

namespace faults {

namespace {

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    DIR* stream = opendir(folder.c_str());
    if (stream == nullptr)
        return names;
    while (const dirent* entry = readdir(stream))
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    closedir(stream);
    return names;
}

// The name may have blanks and brackets, so the fields begin behind the last bracket.
std::optional<ProcessEntry> entryOf(const std::string& pid) {
    std::ifstream file("/proc/" + pid + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t open = line.find('(');
    const std::size_t close = line.rfind(')');
    if (open == std::string::npos || close == std::string::npos)
        return std::nullopt;
    ProcessEntry entry;
    entry.pid = std::atoi(pid.c_str());
    entry.name = line.substr(open + 1, close - open - 1);
    std::istringstream fields(line.substr(close + 1));
    fields >> entry.state >> entry.parent;
    constexpr int untilStart = 17; // fields between the parent and the start time
    std::string skipped;
    for (int i = 0; i < untilStart; ++i)
        fields >> skipped;
    fields >> entry.started;
    return entry;
}

} // namespace

std::vector<ProcessEntry> descendants() {
    std::vector<ProcessEntry> all;
    for (const std::string& name : namesIn("/proc"))
        if (std::ranges::all_of(name, [](char c) { return c >= '0' && c <= '9'; }))
            if (auto entry = entryOf(name))
                all.push_back(std::move(*entry));
    std::set<pid_t> ours{getpid()};
    // A child may have a smaller number than its parent, so this repeats until nothing is added.
    for (bool grows = true; grows;) {
        grows = false;
        for (const ProcessEntry& entry : all)
            grows = (ours.count(entry.parent) > 0 && ours.insert(entry.pid).second) || grows;
    }
    std::erase_if(
        all, [&](const ProcessEntry& entry) { return ours.count(entry.pid) == 0 || entry.pid == getpid(); });
    std::ranges::sort(all, {}, &ProcessEntry::pid);
    return all;
}

bool isPlayerName(const std::string& name) {
    constexpr std::array players{"mjpeg_player", "unicastplayer", "multicastplayer", "mpeg4player",
                                 "walk_player"};
    return std::ranges::any_of(players, [&](const char* player) { return name == player; });
}

bool hasStopped(pid_t pid) {
    const std::string folder = "/proc/" + std::to_string(pid) + "/task";
    return std::ranges::all_of(namesIn(folder), [&](const std::string& thread) {
        std::ifstream file(folder + '/' + thread + "/stat");
        std::string line;
        std::getline(file, line);
        const std::size_t close = line.rfind(')');
        return close == std::string::npos || line.size() < close + 3 || line[close + 2] == 'T' ||
               line[close + 2] == 't';
    });
}

Holdings holdingsOf(pid_t pid) {
    Holdings holdings;
    const std::string folder = "/proc/" + std::to_string(pid);
    std::ifstream memory(folder + "/smaps_rollup");
    for (std::string line; std::getline(memory, line);)
        if (line.starts_with("Private_"))
            holdings.privateKb += std::atof(line.c_str() + line.find(':') + 1);
    holdings.descriptors = static_cast<int>(namesIn(folder + "/fd").size());
    holdings.threads = static_cast<int>(namesIn(folder + "/task").size());
    return holdings;
}

} // namespace faults
