#include "appliance/panel/access/private_file.h"

#include "appliance/panel/access/secrets.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace panel {
namespace {

constexpr std::size_t largest = 1024 * 1024;
constexpr std::chrono::seconds lockPatience{5};
constexpr std::chrono::milliseconds lockInterval{2};

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0)
            close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return number_; }
    int release() { return std::exchange(number_, -1); }

private:
    int number_;
};

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

// What root makes here has to be the decoder's.
void giveToFolderOwner(const std::string& path, const Descriptor& file) {
    struct stat folder {};
    if (geteuid() != 0)
        return;
    if (stat(folderOf(path).c_str(), &folder) != 0 || fchown(file.get(), folder.st_uid, folder.st_gid) != 0)
        fail(path);
}

void writeAll(const std::string& path, const Descriptor& file, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(file.get(), text.data() + written, text.size() - written);
        if (count < 0)
            fail(path);
        written += static_cast<std::size_t>(count);
    }
}

constexpr std::size_t markLength = 16; // of the name of an unfinished file, behind a dot

bool isUnfinished(const std::string& name, const std::string& base) {
    constexpr const char* digits = "0123456789abcdef";
    return name.size() == base.size() + 1 + markLength && name.starts_with(base + '.') &&
           name.find_first_not_of(digits, base.size() + 1) == std::string::npos;
}

// A writer that was killed has left its file, with secrets in it. One that is younger than a minute may be in use.
void removeUnfinished(const std::string& path) {
    constexpr std::time_t oldest = 60;
    const std::string folder = folderOf(path);
    const std::string base = path.substr(folder.size() + 1);
    const std::time_t now = std::time(nullptr);
    std::error_code ignored; // the write itself tells what is wrong with the folder
    for (std::filesystem::directory_iterator entry(folder, ignored), end; entry != end;
         entry.increment(ignored)) {
        const std::string one = entry->path().string();
        struct stat file {};
        if (isUnfinished(entry->path().filename().string(), base) && lstat(one.c_str(), &file) == 0 &&
            now - file.st_mtim.tv_sec > oldest)
            unlink(one.c_str());
    }
}

// Until its folder is on the disk, too, a power cut may bring the old file back: a removed account, an old password.
void makeFolderDurable(const std::string& path) {
    const Descriptor folder(open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.get() < 0 || fsync(folder.get()) != 0)
        fail(path);
}

} // namespace

void writePrivateFile(const std::string& path, const std::string& text) {
    removeUnfinished(path);
    const std::string unfinished = path + '.' + randomSecret().substr(0, markLength);
    const Descriptor file(
        open(unfinished.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (file.get() < 0)
        fail(path);
    try {
        giveToFolderOwner(path, file);
        writeAll(path, file, text);
        if (fsync(file.get()) != 0 || rename(unfinished.c_str(), path.c_str()) != 0)
            fail(path);
    } catch (...) {
        unlink(unfinished.c_str());
        throw;
    }
    makeFolderDurable(path);
}

std::string readPrivateFile(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (file.get() < 0 && errno == ENOENT)
        return {};
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0)
        fail(path);
    if (!S_ISREG(status.st_mode) || (status.st_mode & 077) != 0)
        throw std::runtime_error(path +
                                 " is not used, because other users may read it; its mode has to be 0600");
    std::string text;
    std::array<char, 4096> part{};
    ssize_t count = 0;
    while ((count = read(file.get(), part.data(), part.size())) > 0 && text.size() <= largest)
        text.append(part.data(), static_cast<std::size_t>(count));
    if (count < 0)
        fail(path);
    if (text.size() > largest)
        throw std::runtime_error(path + " is too large");
    return text;
}

// Opened for reading only, because the panel reads accounts and tokens again when a file in their folder was written.
PrivateFileLock::PrivateFileLock(const std::string& path) {
    const std::string lock = path + ".lock";
    Descriptor file(open(lock.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (file.get() < 0)
        fail(lock);
    giveToFolderOwner(lock, file);
    const auto end = std::chrono::steady_clock::now() + lockPatience;
    while (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK && std::chrono::steady_clock::now() >= end)
            errno = ETIMEDOUT;
        if (errno != EWOULDBLOCK && errno != EINTR)
            fail(lock);
        std::this_thread::sleep_for(lockInterval);
    }
    descriptor_ = file.release();
}

PrivateFileLock::~PrivateFileLock() {
    close(descriptor_);
}

void makePrivateFolder(const std::string& path) {
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        fail(path);
    const Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    if (folder.get() < 0)
        fail(path);
    giveToFolderOwner(path, folder);
    if (fchmod(folder.get(), 0700) != 0)
        fail(path);
}

} // namespace panel
