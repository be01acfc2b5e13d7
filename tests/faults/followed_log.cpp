#include "tests/faults/followed_log.h"

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace faults {

namespace {

// Writers look at the name before each line, so after this time none of them writes to the renamed file.
constexpr std::chrono::milliseconds lastLines{200};

} // namespace

void FollowedLog::readFrom(const std::string& file, std::vector<std::string>& lines) {
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    static thread_local std::string buffer(1 << 20, '\0');
    for (ssize_t got = 0; (got = pread(fd, buffer.data(), buffer.size(), at_)) > 0; at_ += got) {
        rest_.append(buffer, 0, static_cast<std::size_t>(got));
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = rest_.find('\n', begin)) != std::string::npos; begin = end + 1)
            lines.push_back(rest_.substr(begin, end - begin));
        rest_.erase(0, begin);
    }
    close(fd);
}

std::vector<std::string> FollowedLog::newLines() {
    std::vector<std::string> lines;
    readFrom(file_, lines);
    if (largest_ > 0 && at_ > largest_) {
        const std::string old = file_ + ".old";
        std::rename(file_.c_str(), old.c_str());
        std::this_thread::sleep_for(lastLines);
        readFrom(old, lines);
        std::remove(old.c_str());
        at_ = 0;
    }
    return lines;
}

} // namespace faults
