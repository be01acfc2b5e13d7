#include "recorder/ring.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace recorder {
namespace {

struct Descriptor {
    int fd;
    ~Descriptor() {
        if (fd >= 0)
            close(fd);
    }
};

std::size_t bytesOf(std::size_t cells) {
    return sizeof(RingHeader) + cells * sizeof(Cell);
}

// A regular file of this user with one name: another user could otherwise choose a file for us to write to.
bool isOurs(int fd, struct stat& file) {
    if (fstat(fd, &file) != 0)
        return false;
    errno = EPERM;
    return S_ISREG(file.st_mode) && file.st_uid == geteuid() && file.st_nlink == 1;
}

bool belongsToGroup(int fd, const std::string& path) {
    struct stat folder {};
    const std::string name = path.substr(0, path.rfind('/'));
    if (stat(name.c_str(), &folder) == 0)
        static_cast<void>(
            !fchown(fd, static_cast<uid_t>(-1), folder.st_gid)); // refused: it stays with our group
    return fchmod(fd, 0640) == 0;
}

bool hasHeader(int fd, std::size_t cells) {
    RingHeader header{};
    return pread(fd, &header, sizeof header, 0) == sizeof header &&
           std::equal(std::begin(header.magic), std::end(header.magic), std::begin(ringMagic)) &&
           header.version == ringVersion && header.cells == cells;
}

// The room is reserved now: a full file system would otherwise kill the process when it writes into the memory.
bool makeAnew(int fd, std::size_t cells) {
    if (ftruncate(fd, 0) != 0)
        return false;
    if (const int error = posix_fallocate(fd, 0, static_cast<off_t>(bytesOf(cells))); error != 0) {
        errno = error;
        return false;
    }
    RingHeader header{};
    std::copy(std::begin(ringMagic), std::end(ringMagic), std::begin(header.magic));
    header.version = ringVersion;
    header.cells = static_cast<std::uint32_t>(cells);
    return pwrite(fd, &header, sizeof header, 0) == sizeof header;
}

// The file may have holes when an earlier reservation was given up half way.
bool isReserved(int fd, const struct stat& file, std::size_t cells) {
    return file.st_size == static_cast<off_t>(bytesOf(cells)) && hasHeader(fd, cells) &&
           posix_fallocate(fd, 0, file.st_size) == 0;
}

bool isWhole(const Cell& cell, std::size_t at, std::size_t cells) {
    return cell.number != 0 && (cell.number - 1) % cells == at && checkOf(cell) == cell.check;
}

} // namespace

std::unique_ptr<Ring> Ring::open(const std::string& path, std::size_t bytes) {
    const std::size_t cells = std::clamp<std::size_t>(bytes / sizeof(Cell), fewestCells, mostCells);
    const Descriptor file{
        ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0640)};
    struct stat state {};
    if (file.fd < 0 || !isOurs(file.fd, state) || !belongsToGroup(file.fd, path))
        return nullptr;
    if (!isReserved(file.fd, state, cells) && !makeAnew(file.fd, cells)) {
        const int error = errno;
        unlink(path.c_str());
        errno = error;
        return nullptr;
    }
    void* memory =
        mmap(nullptr, bytesOf(cells), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, file.fd, 0);
    return memory == MAP_FAILED ? nullptr : std::unique_ptr<Ring>(new Ring(memory, cells));
}

Ring::Ring(void* memory, std::size_t cells)
    : memory_(memory), first_(reinterpret_cast<Cell*>(static_cast<char*>(memory) + sizeof(RingHeader))),
      cells_(cells) {
    std::uint64_t newest = 0;
    for (std::size_t at = 0; at < cells_; ++at)
        if (isWhole(first_[at], at, cells_))
            newest = std::max(newest, first_[at].number);
    next_ = newest;
}

Ring::~Ring() {
    munmap(memory_, bytesOf(cells_));
}

void Ring::append(std::string_view line) {
    line = line.substr(0, cells_ / 8 * cellText);
    const std::size_t count = std::max<std::size_t>(1, (line.size() + cellText - 1) / cellText);
    const std::uint64_t place = next_.fetch_add(count);
    for (std::size_t index = 0; index < count; ++index) {
        const std::string_view text = line.substr(index * cellText, cellText);
        Cell cell{};
        cell.number = place + index + 1;
        cell.index = static_cast<std::uint16_t>(index);
        cell.cells = static_cast<std::uint16_t>(count);
        cell.length = static_cast<std::uint16_t>(text.size());
        text.copy(cell.text, cellText);
        cell.check = checkOf(cell);
        Cell& target = first_[(place + index) % cells_];
        // The number is taken away first and comes back last: a cell that is half written has none.
        const std::atomic_ref<std::uint64_t> number(target.number);
        number.store(0, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_release);
        std::memcpy(&target.check, &cell.check, sizeof cell - sizeof cell.number);
        number.store(cell.number, std::memory_order_release);
    }
}

} // namespace recorder
