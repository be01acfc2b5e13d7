#include "appliance/screen/store_file.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace screen {
namespace {

constexpr char storeMagic[8] = {'s', 'c', 'r', 'e', 'e', 'n', '\r', '\n'};
constexpr std::uint32_t storeVersion = 1;
constexpr std::size_t pageSize = 4096;
constexpr std::size_t headerBytes = (sizeof(StoreHeader) + pageSize - 1) / pageSize * pageSize;
constexpr std::int64_t clockSlackUs = 1'000'000;

std::size_t pictureBytesOf(VideoMode mode) {
    const VideoFormat& format = formatOf(mode);
    return std::size_t(4) * static_cast<std::size_t>(format.width) * static_cast<std::size_t>(format.height);
}

bool makeParentFolders(const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        const std::string folder = path.substr(0, slash);
        if (mkdir(folder.c_str(), 0775) != 0 && errno != EEXIST) {
            logmsg(3, "Can't make the folder %s (errno=%d %s)", folder.c_str(), errno, std::strerror(errno));
            return false;
        }
    }
    return true;
}

StoreHeader* mapStore(int fd, std::uint64_t size, bool writable) {
    void* at = mmap(nullptr, size, writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, fd, 0);
    return at == MAP_FAILED ? nullptr : static_cast<StoreHeader*>(at);
}

// Why a file of `size` bytes is not usable; null when it is. Reads the header only after checking the size, so
// it can't touch memory beyond the file.
const char* faultOf(const StoreHeader& header, std::uint64_t size) {
    if (std::memcmp(header.magic, storeMagic, sizeof storeMagic) != 0)
        return "not a frame store";
    if (header.version != storeVersion)
        return "another version's layout";
    const auto mode = static_cast<VideoMode>(header.mode);
    if (mode != VideoMode::pal && mode != VideoMode::ntsc)
        return "no such video mode";
    const VideoFormat& format = formatOf(mode);
    if (header.width != static_cast<std::uint32_t>(format.width) ||
        header.height != static_cast<std::uint32_t>(format.height) || header.slots != slotCount ||
        header.records != recordCount || header.fileSize != size || size != storeFileSize(mode))
        return "a wrong size";
    // The clock starts with the machine, so a time in the future is from before the restart.
    const std::int64_t latest = gettimeusec() + clockSlackUs;
    if (header.newestTime > latest || header.blankedAt > latest)
        return "left over from before a restart";
    return nullptr;
}

void fillHeader(StoreHeader& header, VideoMode mode) {
    const VideoFormat& format = formatOf(mode);
    std::memcpy(header.magic, storeMagic, sizeof storeMagic);
    header.version = storeVersion;
    header.mode = static_cast<std::uint32_t>(mode);
    header.fileSize = storeFileSize(mode);
    header.width = static_cast<std::uint32_t>(format.width);
    header.height = static_cast<std::uint32_t>(format.height);
    header.slots = slotCount;
    header.records = recordCount;
}

void carryOver(StoreFile& from, StoreFile& to, bool keepPicture) {
    const StoreHeader& old = from.header();
    StoreHeader& fresh = to.header();
    const std::uint64_t newest = old.newest;
    fresh.newest = newest;
    fresh.turn = old.turn.load();
    fresh.newestTime = old.newestTime.load();
    fresh.blankedAt = keepPicture ? old.blankedAt.load() : gettimeusec();
    for (std::size_t i = 0; i < recordCount; ++i) {
        fresh.record[i].number = old.record[i].number.load();
        fresh.record[i].time = old.record[i].time.load();
        fresh.record[i].pid = old.record[i].pid.load();
        fresh.record[i].source = old.record[i].source.load();
    }
    if (newest == 0)
        return;
    const FrameSlot& oldSlot = old.slot[newest % slotCount];
    FrameSlot& slot = fresh.slot[newest % slotCount];
    slot.sequence = 2 * newest;
    slot.time = oldSlot.time.load();
    slot.pid = oldSlot.pid.load();
    slot.source = oldSlot.source.load();
    if (!keepPicture)
        return;
    // Both modes have the same width. Rows are cut, or framed by the black of the new file.
    const int oldHeight = static_cast<int>(old.height);
    const int height = static_cast<int>(fresh.height);
    const std::size_t row = std::size_t(4) * fresh.width;
    const std::size_t rows = static_cast<std::size_t>(std::min(oldHeight, height));
    const std::size_t skip = static_cast<std::size_t>(std::max(0, (oldHeight - height) / 2)) * row;
    const std::size_t indent = static_cast<std::size_t>(std::max(0, (height - oldHeight) / 2)) * row;
    std::memcpy(to.picture(newest) + indent, from.picture(newest) + skip, rows * row);
}

// Sets access to both files for the appliance's user and group only, independent of the umask.
constexpr mode_t accessMode = 0660;

int openLockFile(const std::string& path) {
    int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd >= 0 || errno != ENOENT || !makeParentFolders(path))
        return fd;
    fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, accessMode);
    if (fd >= 0)
        fchmod(fd, accessMode);
    return fd;
}

// False when the folder was removed and another process made a new lock file: a lock on the old one then
// excludes no other writer.
bool stillThere(int fd) {
    struct stat info {};
    return fstat(fd, &info) == 0 && info.st_nlink > 0;
}

} // namespace

std::uint64_t storeFileSize(VideoMode mode) {
    return headerBytes + slotCount * pictureBytesOf(mode);
}

WriterLock::WriterLock(const std::string& storePath) {
    const std::string path = storePath + ".lock";
    const std::int64_t deadline = gettimeusec() + 1'000'000;
    int fd = openLockFile(path);
    while (fd >= 0) {
        const bool locked = flock(fd, LOCK_EX | LOCK_NB) == 0;
        if (locked && stillThere(fd)) {
            fd_ = fd;
            return;
        }
        if ((!locked && errno != EWOULDBLOCK && errno != EINTR) || gettimeusec() > deadline)
            break;
        if (locked) {
            close(fd);
            fd = openLockFile(path);
            continue;
        }
        // A drawing takes about two milliseconds. Poll with a limit: a stopped process may hold the lock.
        usleep(200);
    }
    const int error = errno;
    if (fd >= 0)
        close(fd);
    logmsg(3, "Can't lock the frame store %s (errno=%d %s)", path.c_str(), error, std::strerror(error));
}

WriterLock::~WriterLock() {
    if (fd_ >= 0)
        close(fd_);
}

std::shared_ptr<StoreFile> StoreFile::open(const std::string& path, bool writable, std::string& reason) {
    reason.clear();
    const int fd = ::open(path.c_str(), (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        if (errno != ENOENT && errno != ENOTDIR)
            reason = std::strerror(errno);
        return nullptr;
    }
    struct stat info {};
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) ||
        (static_cast<std::uint64_t>(info.st_size) != storeFileSize(VideoMode::pal) &&
         static_cast<std::uint64_t>(info.st_size) != storeFileSize(VideoMode::ntsc))) {
        reason = "a wrong size";
        close(fd);
        return nullptr;
    }
    const auto size = static_cast<std::uint64_t>(info.st_size);
    StoreHeader* header = mapStore(fd, size, writable);
    if (header == nullptr) {
        reason = std::strerror(errno);
        close(fd);
        return nullptr;
    }
    if (const char* fault = faultOf(*header, size)) {
        reason = fault;
        munmap(header, size);
        close(fd);
        return nullptr;
    }
    return std::shared_ptr<StoreFile>(
        new StoreFile(fd, header, static_cast<VideoMode>(header->mode), writable));
}

std::shared_ptr<StoreFile> StoreFile::create(const std::string& path, VideoMode mode, StoreFile* old,
                                             bool keepPicture) {
    const std::string fresh = path + ".new";
    const std::uint64_t size = storeFileSize(mode);
    unlink(fresh.c_str());
    const int fd = ::open(fresh.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, accessMode);
    if (fd < 0) {
        logmsg(3, "Can't make the frame store %s (errno=%d %s)", fresh.c_str(), errno, std::strerror(errno));
        return nullptr;
    }
    fchmod(fd, accessMode);
    // Allocate the memory now: on a full file system, a drawing would otherwise end with SIGBUS.
    const int refused = posix_fallocate(fd, 0, static_cast<off_t>(size));
    StoreHeader* header = refused == 0 ? mapStore(fd, size, true) : nullptr;
    if (header == nullptr) {
        const int error = refused != 0 ? refused : errno;
        logmsg(3, "No memory for the frame store %s (errno=%d %s)", fresh.c_str(), error,
               std::strerror(error));
        close(fd);
        unlink(fresh.c_str());
        return nullptr;
    }
    std::shared_ptr<StoreFile> file(new StoreFile(fd, header, mode, true));
    fillHeader(*header, mode);
    if (old != nullptr)
        carryOver(*old, *file, keepPicture);
    if (rename(fresh.c_str(), path.c_str()) != 0) {
        logmsg(3, "Can't put the frame store at %s (errno=%d %s)", path.c_str(), errno, std::strerror(errno));
        unlink(fresh.c_str());
        return nullptr;
    }
    if (old != nullptr && old->writable())
        old->retire();
    return file;
}

StoreFile::~StoreFile() {
    munmap(header_, storeFileSize(mode_));
    close(fd_);
}

std::size_t StoreFile::pictureBytes() const {
    return pictureBytesOf(mode_);
}

std::uint8_t* StoreFile::picture(std::uint64_t number) {
    return reinterpret_cast<std::uint8_t*>(header_) + headerBytes + number % slotCount * pictureBytes();
}

bool StoreFile::current() const {
    struct stat info {};
    return fstat(fd_, &info) == 0 && info.st_nlink > 0 &&
           static_cast<std::uint64_t>(info.st_size) == storeFileSize(mode_) && header_->retired == 0;
}

void StoreFile::announceChange() {
    header_->changes.fetch_add(1);
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&header_->changes), FUTEX_WAKE, INT_MAX, nullptr,
            nullptr, 0);
}

void StoreFile::retire() {
    header_->retired = 1;
    announceChange();
}

} // namespace screen
