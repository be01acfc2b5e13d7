#include "appliance/screen/store_file.h"

#include "appliance/screen/writer_lock.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace screen {
namespace {

constexpr char storeMagic[8] = {'s', 'c', 'r', 'e', 'e', 'n', '\r', '\n'};
constexpr std::uint32_t storeVersion = 2;
constexpr std::size_t pageSize = 4096;
constexpr std::int64_t clockSlackUs = 1'000'000;
constexpr std::uint64_t highestNumber = 1ULL << 62;

constexpr std::size_t wholePages(std::size_t bytes) {
    return (bytes + pageSize - 1) / pageSize * pageSize;
}

constexpr std::size_t headerBytes = wholePages(sizeof(StoreHeader));
constexpr std::size_t smallestSlot = wholePages(std::size_t(4) * 720 * 576); // a black picture of either mode
constexpr std::size_t largestSlot = std::size_t(4) * maxPictureSide * maxPictureSide;

std::size_t sizeWithSlots(std::size_t slotBytes) {
    return headerBytes + slotCount * slotBytes;
}

// The slot size of a file of that size; nothing when no store has it.
std::optional<std::size_t> slotBytesIn(std::uint64_t fileSize) {
    if (fileSize < sizeWithSlots(smallestSlot) || fileSize > sizeWithSlots(largestSlot))
        return std::nullopt;
    const auto slotBytes = static_cast<std::size_t>((fileSize - headerBytes) / slotCount);
    if (slotBytes % pageSize != 0 || sizeWithSlots(slotBytes) != fileSize)
        return std::nullopt;
    return slotBytes;
}

bool isMode(std::uint32_t mode) {
    return mode == static_cast<std::uint32_t>(VideoMode::pal) ||
           mode == static_cast<std::uint32_t>(VideoMode::ntsc);
}

// Why a file with slots of that size is not usable; null when it is.
const char* faultOf(const StoreHeader& header, std::size_t slotBytes) {
    if (std::memcmp(header.magic, storeMagic, sizeof storeMagic) != 0)
        return "not a frame store";
    if (header.version != storeVersion)
        return "another version's layout";
    if (header.slots != slotCount || header.records != recordCount || header.slotBytes != slotBytes ||
        header.fileSize != sizeWithSlots(slotBytes) || header.padding != 0 || header.padding2 != 0)
        return "a wrong size";
    if (!isMode(header.mode))
        return "no such video mode";
    if (header.newest > highestNumber)
        return "no such picture number";
    // The clock starts with the machine, so a time in the future is from before the restart.
    const std::int64_t latest = gettimeusec() + clockSlackUs;
    if (header.newestTime > latest || header.blankedAt > latest)
        return "left over from before a restart";
    if (header.newestTime < 0 || header.blankedAt < 0)
        return "a time before the clock's begin";
    return header.retired == 0 ? nullptr : "it was replaced";
}

void fillHeader(StoreHeader& header, VideoMode mode, std::size_t slotBytes) {
    std::memcpy(header.magic, storeMagic, sizeof storeMagic);
    header.version = storeVersion;
    header.slots = slotCount;
    header.records = recordCount;
    header.slotBytes = slotBytes;
    header.fileSize = sizeWithSlots(slotBytes);
    header.mode = static_cast<std::uint32_t>(mode);
}

void write(SlotShape& to, const PictureShape& shape) {
    to.width = static_cast<std::uint32_t>(shape.width);
    to.height = static_cast<std::uint32_t>(shape.height);
    to.format = static_cast<std::uint32_t>(shape.format);
    to.aspectNumerator = static_cast<std::uint32_t>(shape.aspectNumerator);
    to.aspectDenominator = static_cast<std::uint32_t>(shape.aspectDenominator);
    to.matrix = static_cast<std::uint32_t>(shape.matrix);
    to.fullRange = shape.fullRange ? 1 : 0;
    to.turn = static_cast<std::uint32_t>(shape.turn);
}

// Nothing when it is not the shape of a picture.
std::optional<PictureShape> shapeIn(const SlotShape& from) {
    PictureShape shape;
    // A number that is too large for an int becomes negative, which faultOf() refuses.
    shape.width = static_cast<int>(from.width.load());
    shape.height = static_cast<int>(from.height.load());
    shape.format = static_cast<PixelFormat>(from.format.load());
    shape.aspectNumerator = static_cast<int>(from.aspectNumerator.load());
    shape.aspectDenominator = static_cast<int>(from.aspectDenominator.load());
    shape.matrix = static_cast<ColourMatrix>(from.matrix.load());
    const std::uint32_t fullRange = from.fullRange;
    shape.fullRange = fullRange == 1;
    shape.turn = static_cast<Turn>(from.turn.load());
    if (fullRange > 1 || faultOf(shape) != nullptr)
        return std::nullopt;
    return shape;
}

void copyRecord(const FrameRecord& from, FrameRecord& to) {
    to.number = from.number.load();
    to.time = from.time.load();
    to.pid = from.pid.load();
    to.source = from.source.load();
}

struct Opened {
    int fd = -1;
    std::size_t slotBytes = 0;
    void* memory = nullptr; // null: not usable
};

void* mapStore(int fd, std::size_t slotBytes, bool writable) {
    const int access = writable ? PROT_READ | PROT_WRITE : PROT_READ;
    void* at = mmap(nullptr, sizeWithSlots(slotBytes), access, MAP_SHARED, fd, 0);
    return at == MAP_FAILED ? nullptr : at;
}

// Maps the file if it has a store's size: after that, reading the header can't touch memory beyond the file.
Opened openAndMap(const std::string& path, bool writable, std::string& reason) {
    Opened opened;
    opened.fd = ::open(path.c_str(), (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK);
    if (opened.fd < 0) {
        if (errno != ENOENT && errno != ENOTDIR)
            reason = std::strerror(errno);
        return opened;
    }
    struct stat info {};
    std::optional<std::size_t> slotBytes;
    if (fstat(opened.fd, &info) == 0 && S_ISREG(info.st_mode))
        slotBytes = slotBytesIn(static_cast<std::uint64_t>(info.st_size));
    if (!slotBytes) {
        reason = "a wrong size";
    } else {
        opened.slotBytes = *slotBytes;
        opened.memory = mapStore(opened.fd, *slotBytes, writable);
        if (opened.memory == nullptr)
            reason = std::strerror(errno);
    }
    if (opened.memory == nullptr)
        close(opened.fd);
    return opened;
}

// Whether the open file is still the one at that path.
bool isAt(const std::string& path, int fd) {
    struct stat here {};
    struct stat there {};
    return fstat(fd, &here) == 0 && stat(path.c_str(), &there) == 0 && here.st_dev == there.st_dev &&
           here.st_ino == there.st_ino;
}

// Allocates the file's memory. Returns an error number; 0: done.
int allocate(int fd, std::uint64_t size) {
    // Beyond the process's own limit the kernel would not only refuse but also send SIGXFSZ.
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur < size)
        return EFBIG;
    return posix_fallocate(fd, 0, static_cast<off_t>(size));
}

// A new file of that size, its memory allocated: on a full file system, a drawing would otherwise end with SIGBUS.
Opened makeFile(const std::string& path, std::size_t slotBytes, std::string& reason) {
    Opened made;
    made.slotBytes = slotBytes;
    unlink(path.c_str());
    made.fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, storeAccessMode);
    if (made.fd < 0) {
        reason = "can't make the file " + path + ": " + std::strerror(errno);
        return made;
    }
    fchmod(made.fd, storeAccessMode);
    const std::uint64_t size = sizeWithSlots(slotBytes);
    const int refused = allocate(made.fd, size);
    made.memory = refused == 0 ? mapStore(made.fd, slotBytes, true) : nullptr;
    if (made.memory == nullptr) {
        const int error = refused != 0 ? refused : errno;
        reason = "no memory for a file of " + std::to_string(size) + " bytes: " + std::strerror(error);
        close(made.fd);
        unlink(path.c_str());
    }
    return made;
}

} // namespace

std::uint64_t storeFileSize(std::size_t pictureBytes) {
    return sizeWithSlots(std::max(wholePages(pictureBytes), smallestSlot));
}

std::uint64_t smallestStoreFile() {
    return sizeWithSlots(smallestSlot);
}

StoreFile::StoreFile(int fd, void* memory, std::size_t slotBytes, bool writable)
    : fd_(fd), header_(static_cast<StoreHeader*>(memory)), slotBytes_(slotBytes), writable_(writable) {}

StoreFile::~StoreFile() {
    munmap(header_, sizeWithSlots(slotBytes_));
    close(fd_);
}

std::shared_ptr<StoreFile> StoreFile::open(const std::string& path, bool writable, std::string& reason) {
    // A file that is replaced right after it was opened is not the store any more: open the next one.
    constexpr int attempts = 64;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        reason.clear();
        const Opened opened = openAndMap(path, writable, reason);
        if (opened.memory == nullptr)
            return nullptr;
        std::shared_ptr<StoreFile> file(new StoreFile(opened.fd, opened.memory, opened.slotBytes, writable));
        const char* fault = faultOf(file->header(), opened.slotBytes);
        if (fault == nullptr)
            fault = file->faultOfNewest();
        if (fault == nullptr)
            return file;
        reason = fault;
        if (isAt(path, opened.fd))
            return nullptr;
    }
    return nullptr;
}

// Writers may be at work, so a slot with another picture is no fault.
const char* StoreFile::faultOfNewest() const {
    const std::uint64_t number = newest();
    const bool broken = number != 0 && content(number).state == SlotContent::State::broken;
    return broken ? "its newest picture has no usable shape" : nullptr;
}

std::shared_ptr<StoreFile> StoreFile::create(const std::string& path, const Wanted& wanted, StoreFile* old,
                                             std::string& reason) {
    const std::string fresh = path + ".new";
    const std::size_t atLeast = old == nullptr ? smallestSlot : old->slotBytes();
    const Opened made = makeFile(fresh, std::max(wholePages(wanted.pictureBytes), atLeast), reason);
    if (made.memory == nullptr)
        return nullptr;
    std::shared_ptr<StoreFile> file(new StoreFile(made.fd, made.memory, made.slotBytes, true));
    fillHeader(file->header(), wanted.mode, made.slotBytes);
    if (old != nullptr)
        file->carryOver(*old, wanted.keepPicture);
    if (rename(fresh.c_str(), path.c_str()) != 0) {
        reason = "can't replace the file: " + std::string(std::strerror(errno));
        unlink(fresh.c_str());
        return nullptr;
    }
    if (old == nullptr)
        return file;
    // Blanking needs no lock, so the screen may have been blanked meanwhile. After the rename blank() notices that
    // it changed the old file.
    if (const std::int64_t blanked = old->header().blankedAt; blanked > file->header().blankedAt)
        file->header().blankedAt = blanked;
    if (old->writable())
        old->retire();
    return file;
}

void StoreFile::carryOver(StoreFile& old, bool keepPicture) {
    const StoreHeader& from = old.header();
    const std::uint64_t number = old.newest();
    header_->newest = number;
    header_->takeOvers = from.takeOvers.load();
    header_->newestTime = from.newestTime.load();
    for (std::size_t i = 0; i < recordCount; ++i)
        copyRecord(from.record[i], header_->record[i]);
    if (number != 0) {
        const SlotContent content = old.content(number);
        const bool kept = keepPicture && content.state == SlotContent::State::picture;
        // The new file's memory is zero, which is black in BGRx.
        begin(number, kept ? content.shape : televisionShape(mode()));
        if (kept)
            std::memcpy(picture(number), old.picture(number), bytesOf(content.shape));
        FrameSlot& slot = header_->slot[number % slotCount];
        slot.time = from.slot[number % slotCount].time.load();
        slot.pid = from.slot[number % slotCount].pid.load();
        slot.source = from.slot[number % slotCount].source.load();
        slot.sequence = 2 * number;
    }
    header_->blankedAt = keepPicture ? from.blankedAt.load() : gettimeusec();
}

VideoMode StoreFile::mode() const {
    const std::uint32_t mode = header_->mode;
    return isMode(mode) ? static_cast<VideoMode>(mode) : VideoMode::pal;
}

std::uint64_t StoreFile::newest() const {
    const std::uint64_t number = header_->newest.load(std::memory_order_acquire);
    return number <= highestNumber ? number : 0;
}

SlotContent StoreFile::content(std::uint64_t number) const {
    const FrameSlot& slot = header_->slot[number % slotCount];
    SlotContent content;
    if (slot.sequence.load(std::memory_order_acquire) != 2 * number)
        return content;
    content.info = {number, slot.time, slot.pid, slot.source};
    const std::optional<PictureShape> shape = shapeIn(slot.shape);
    const bool usable = shape && bytesOf(*shape) <= slotBytes_;
    if (usable)
        content.shape = *shape;
    if (stillThere(number))
        content.state = usable ? SlotContent::State::picture : SlotContent::State::broken;
    return content;
}

bool StoreFile::stillThere(std::uint64_t number) const {
    std::atomic_thread_fence(std::memory_order_acquire);
    return header_->slot[number % slotCount].sequence.load(std::memory_order_relaxed) == 2 * number;
}

const std::uint8_t* StoreFile::picture(std::uint64_t number) const {
    return reinterpret_cast<const std::uint8_t*>(header_) + headerBytes + number % slotCount * slotBytes_;
}

std::uint8_t* StoreFile::picture(std::uint64_t number) {
    return reinterpret_cast<std::uint8_t*>(header_) + headerBytes + number % slotCount * slotBytes_;
}

void StoreFile::begin(std::uint64_t number, const PictureShape& shape) {
    FrameSlot& slot = header_->slot[number % slotCount];
    slot.sequence.store(2 * number - 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    write(slot.shape, shape);
}

bool StoreFile::current() const {
    struct stat info {};
    return fstat(fd_, &info) == 0 && info.st_nlink > 0 &&
           static_cast<std::uint64_t>(info.st_size) == sizeWithSlots(slotBytes_) && header_->retired == 0;
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
