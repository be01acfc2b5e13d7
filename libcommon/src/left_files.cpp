#include "libcommon/src/left_files.h"

#include <libcommon/log.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace local {

namespace {

constexpr time_t oldSeconds = 10; // a write takes milliseconds

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

// A number of at least 1 and nothing else.
std::optional<pid_t> number(std::string_view text) {
    pid_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value <= 0)
        return std::nullopt;
    return value;
}

// The process in ".NAME.PID.TID".
std::optional<pid_t> writerIn(std::string_view name) {
    const std::size_t threadDot = name.rfind('.');
    const std::size_t processDot = threadDot == 0 ? 0 : name.rfind('.', threadDot - 1);
    if (processDot == 0 || !number(name.substr(threadDot + 1)))
        return std::nullopt;
    return number(name.substr(processDot + 1, threadDot - processDot - 1));
}

bool lives(pid_t pid) {
    return kill(pid, 0) == 0 || errno == EPERM;
}

} // namespace

bool isLeftFile(const std::string& path, std::string_view name) {
    if (!name.starts_with('.'))
        return false;
    const std::optional<pid_t> writer = writerIn(name);
    struct stat file {};
    if ((!writer && !name.ends_with(".new")) || lstat(path.c_str(), &file) != 0 || !S_ISREG(file.st_mode))
        return false;
    const bool isOld = std::time(nullptr) - file.st_mtim.tv_sec > oldSeconds;
    return isOld || (writer && !lives(*writer));
}

void removeLeftFilesIn(const std::string& folder) {
    const std::unique_ptr<DIR, CloseFolder> open(opendir(folder.c_str()));
    std::vector<std::string> left;
    while (const dirent* entry = open == nullptr ? nullptr : readdir(open.get())) {
        std::string path = folder + '/' + entry->d_name;
        if (isLeftFile(path, entry->d_name))
            left.push_back(std::move(path));
    }
    for (const std::string& path : left)
        if (unlink(path.c_str()) != 0 && errno != ENOENT)
            logmsg(3, "Failed to remove %s. (errno=%d %s)", path.c_str(), errno, std::strerror(errno));
}

} // namespace local
