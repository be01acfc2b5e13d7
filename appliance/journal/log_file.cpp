#include "appliance/journal/journal.h"

#include <libcommon/log.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t blockBytes = 64 * 1024;
constexpr std::size_t mostBytes = 2 * 1024 * 1024; // that are searched for the last lines
constexpr std::size_t longestLine = 16 * 1024;     // a longer one is cut

class LogFile : public Journal {
public:
    explicit LogFile(std::string path)
        : path_(std::move(path)), watch_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        const std::size_t slash = path_.rfind('/');
        name_ = path_.substr(slash == std::string::npos ? 0 : slash + 1);
        const std::string folder =
            slash == std::string::npos ? "." : path_.substr(0, std::max<std::size_t>(slash, 1));
        if (watch_ < 0 || inotify_add_watch(watch_, folder.c_str(), IN_MODIFY | IN_CREATE | IN_MOVED_TO) < 0)
            logmsg(3, "The log in %s can't be followed. (errno=%d %s)", folder.c_str(), errno,
                   std::strerror(errno));
        openFile();
        if (file_ >= 0)
            offset_ = lseek(file_, 0, SEEK_END);
    }
    ~LogFile() override {
        closeFile();
        if (watch_ >= 0)
            close(watch_);
    }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    std::vector<JournalLine> last(std::size_t lines) override;
    int fd() const override { return watch_; }
    void follow(const std::function<void(const JournalLine&)>& take) override;

private:
    void openFile() { file_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }
    void closeFile() {
        if (file_ >= 0)
            close(file_);
        file_ = -1;
    }
    void clearNotes() const;
    bool replaced() const;
    void readNew(std::size_t& left, const std::function<void(const JournalLine&)>& take);

    std::string path_;
    std::string name_;
    int watch_;
    int file_ = -1;
    off_t offset_ = 0;
    std::string rest_; // of a line whose end is not there yet
};

void LogFile::clearNotes() const {
    char bytes[4096];
    while (watch_ >= 0 && read(watch_, bytes, sizeof bytes) > 0) {
    }
}

// Whether the path leads to another file, or to a shorter one.
bool LogFile::replaced() const {
    struct stat ours {};
    struct stat named {};
    if (file_ < 0 || fstat(file_, &ours) != 0)
        return true;
    if (stat(path_.c_str(), &named) != 0)
        return false; // the next line makes it anew
    return ours.st_ino != named.st_ino || ours.st_dev != named.st_dev || ours.st_size < offset_;
}

void LogFile::readNew(std::size_t& left, const std::function<void(const JournalLine&)>& take) {
    std::string block(blockBytes, '\0');
    while (left > 0 && file_ >= 0) {
        const ssize_t got = pread(file_, block.data(), block.size(), offset_);
        if (got <= 0)
            return;
        offset_ += got;
        rest_.append(block, 0, static_cast<std::size_t>(got));
        std::size_t begin = 0;
        for (std::size_t end = 0; left > 0 && (end = rest_.find('\n', begin)) != std::string::npos;
             begin = end + 1) {
            take(readJournalLine(std::string_view(rest_).substr(begin, end - begin)));
            --left;
        }
        rest_.erase(0, begin);
        if (rest_.size() > longestLine)
            rest_.resize(longestLine);
    }
}

void LogFile::follow(const std::function<void(const JournalLine&)>& take) {
    clearNotes();
    std::size_t left = mostLines;
    readNew(left, take);
    if (!replaced())
        return;
    closeFile();
    openFile();
    offset_ = 0;
    rest_.clear();
    readNew(left, take);
}

std::vector<JournalLine> LogFile::last(std::size_t lines) {
    const int file = open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat info {};
    std::string text;
    if (file >= 0 && fstat(file, &info) == 0) {
        const auto bytes = static_cast<std::size_t>(std::min<off_t>(info.st_size, mostBytes));
        text.resize(bytes);
        const ssize_t got = pread(file, text.data(), bytes, info.st_size - static_cast<off_t>(bytes));
        text.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    }
    if (file >= 0)
        close(file);
    std::vector<JournalLine> found;
    std::size_t end = text.rfind('\n');
    while (end != std::string::npos && end > 0 && found.size() < lines) {
        const std::size_t before = text.rfind('\n', end - 1);
        const std::size_t begin = before == std::string::npos ? 0 : before + 1;
        found.push_back(readJournalLine(std::string_view(text).substr(begin, end - begin)));
        end = before;
    }
    std::ranges::reverse(found);
    return found;
}

} // namespace

std::unique_ptr<Journal> openLogFile(const std::string& path) {
    return std::make_unique<LogFile>(path);
}
