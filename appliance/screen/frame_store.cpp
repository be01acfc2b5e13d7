#include "appliance/screen/frame_store.h"

#include "appliance/screen/store_file.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>
#include <libcommon/paths.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace screen {
namespace {

// How often a waiter looks for a missing store, in milliseconds.
constexpr int lookAgainMs = 20;
// Removing a store does not wake its waiters, so they look after this time, in milliseconds.
constexpr int futexSliceMs = 200;

void futexWait(std::atomic<std::uint32_t>& word, std::uint32_t seen, int timeoutMs) {
    const timespec timeout{timeoutMs / 1000, timeoutMs % 1000 * 1'000'000L};
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAIT, seen, &timeout, nullptr, 0);
}

// Copies the picture with that number from its slot. False when it was overwritten meanwhile.
bool copyPicture(StoreFile& file, std::uint64_t number, Frame& out) {
    const FrameSlot& slot = file.header().slot[number % slotCount];
    if (slot.sequence.load(std::memory_order_acquire) != 2 * number)
        return false;
    out.info = {number, slot.time, slot.pid, slot.source};
    out.pixels.resize(file.pictureBytes() / sizeof(std::uint32_t));
    std::memcpy(out.pixels.data(), file.picture(number), file.pictureBytes());
    std::atomic_thread_fence(std::memory_order_acquire);
    return slot.sequence.load(std::memory_order_relaxed) == 2 * number;
}

} // namespace

Drawing::Drawing(std::shared_ptr<StoreFile> file, std::unique_ptr<WriterLock> lock)
    : file_(std::move(file)), lock_(std::move(lock)) {
    if (file_ == nullptr)
        return;
    StoreHeader& header = file_->header();
    number_ = header.newest + 1;
    pixels_ = file_->picture(number_);
    const VideoFormat& format = formatOf(file_->mode());
    width_ = format.width;
    height_ = format.height;
    header.slot[number_ % slotCount].sequence.store(2 * number_ - 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
}

Drawing::Drawing(Drawing&& other) noexcept
    : file_(std::move(other.file_)), lock_(std::move(other.lock_)),
      pixels_(std::exchange(other.pixels_, nullptr)), width_(other.width_), height_(other.height_),
      number_(other.number_) {}

Drawing::~Drawing() = default;

FrameInfo Drawing::commit(std::int32_t source) {
    if (pixels_ == nullptr)
        return {};
    StoreHeader& header = file_->header();
    const FrameInfo info{number_, gettimeusec(), getpid(), source};
    FrameSlot& slot = header.slot[number_ % slotCount];
    slot.time = info.time;
    slot.pid = info.pid;
    slot.source = info.source;
    slot.sequence.store(2 * number_, std::memory_order_release);
    FrameRecord& record = header.record[number_ % recordCount];
    record.number = 0;
    record.time = info.time;
    record.pid = info.pid;
    record.source = info.source;
    record.number.store(number_, std::memory_order_release);
    header.newestTime = info.time;
    header.newest.store(number_, std::memory_order_release);
    file_->announceChange();
    pixels_ = nullptr;
    lock_.reset();
    return info;
}

FrameStore::FrameStore() : FrameStore(appliancePath()) {}
FrameStore::FrameStore(std::string path) : path_(std::move(path)) {}
FrameStore::FrameStore(FrameStore&&) noexcept = default;
FrameStore::~FrameStore() = default;

std::string FrameStore::appliancePath() {
    return libcommon::appliancePath("/run/decoder/screen/frames");
}

// Closes a store that was replaced.
void FrameStore::follow() {
    if (file_ != nullptr && !file_->current())
        file_.reset();
}

bool FrameStore::openForReading() {
    follow();
    if (file_ != nullptr)
        return true;
    std::string reason;
    file_ = StoreFile::open(path_, false, reason);
    if (file_ == nullptr && !reason.empty() && reason != lastReason_)
        logmsg(3, "Frame store %s is not used: %s", path_.c_str(), reason.c_str());
    lastReason_ = reason;
    return file_ != nullptr;
}

// Opens the store, or creates one if there is no usable one. The caller holds the writers' lock.
bool FrameStore::openForWriting() {
    follow();
    if (file_ != nullptr && file_->writable())
        return true;
    std::string reason;
    file_ = StoreFile::open(path_, true, reason);
    if (file_ != nullptr)
        return true;
    if (!reason.empty())
        logmsg(6, "Frame store %s is replaced: %s", path_.c_str(), reason.c_str());
    file_ = StoreFile::create(path_, wantedMode_, nullptr, false);
    return file_ != nullptr;
}

bool FrameStore::present() {
    return openForReading();
}

bool FrameStore::newest(Frame& out) {
    // If three drawings complete while the reader copies, it copies the newest one again.
    for (int attempt = 0; attempt < 64; ++attempt) {
        if (!openForReading())
            return false;
        const std::uint64_t number = file_->header().newest.load(std::memory_order_acquire);
        if (number == 0)
            return false;
        Frame& copy = scratch_;
        if (!copyPicture(*file_, number, copy))
            continue;
        copy.mode = file_->mode();
        copy.width = formatOf(copy.mode).width;
        copy.height = formatOf(copy.mode).height;
        std::swap(out, copy);
        return true;
    }
    return false;
}

FrameInfo FrameStore::newestInfo() {
    for (int attempt = 0; attempt < 64; ++attempt) {
        if (!openForReading())
            return {};
        const std::uint64_t number = file_->header().newest.load(std::memory_order_acquire);
        if (number == 0)
            return {};
        const FrameRecord& record = file_->header().record[number % recordCount];
        const FrameInfo info{number, record.time, record.pid, record.source};
        if (record.number == number)
            return info;
    }
    return {};
}

std::vector<FrameInfo> FrameStore::infosSince(std::uint64_t after) {
    std::vector<FrameInfo> infos;
    if (!openForReading())
        return infos;
    StoreHeader& header = file_->header();
    const std::uint64_t newest = header.newest.load(std::memory_order_acquire);
    const std::uint64_t oldest = newest >= recordCount ? newest - recordCount + 1 : 1;
    for (std::uint64_t number = oldest; number <= newest; ++number) {
        if (number <= after)
            continue;
        const FrameRecord& record = header.record[number % recordCount];
        if (record.number.load(std::memory_order_acquire) != number)
            continue;
        const FrameInfo info{number, record.time, record.pid, record.source};
        if (record.number == number)
            infos.push_back(info);
    }
    return infos;
}

std::int64_t FrameStore::blankedAt() {
    return openForReading() ? file_->header().blankedAt.load() : 0;
}

VideoMode FrameStore::mode() {
    return openForReading() ? file_->mode() : VideoMode::pal;
}

std::uint64_t FrameStore::wait(std::uint64_t seen, int timeoutMs) {
    const std::int64_t deadline = gettimeusec() + std::int64_t(1000) * timeoutMs;
    for (;;) {
        const bool open = openForReading();
        const std::uint32_t changes = open ? file_->header().changes.load() : 0;
        const std::uint64_t newest = open ? file_->header().newest.load() : 0;
        const std::int64_t leftUs = deadline - gettimeusec();
        if (newest != seen || leftUs <= 0)
            return newest;
        const int leftMs = static_cast<int>((leftUs + 999) / 1000);
        if (!open) {
            usleep(1000U * static_cast<unsigned>(std::min(leftMs, lookAgainMs)));
            continue;
        }
        const std::shared_ptr<StoreFile> watched = file_;
        futexWait(watched->header().changes, changes, std::min(leftMs, futexSliceMs));
        if (!watched->current() || watched->header().changes != changes)
            return newestInfo().number;
    }
}

// Replaces the present file by a new one. The caller holds the writers' lock.
bool FrameStore::renew(VideoMode mode, bool keepPicture) {
    std::string reason;
    if (file_ == nullptr || !file_->current() || !file_->writable())
        file_ = StoreFile::open(path_, true, reason);
    const std::shared_ptr<StoreFile> fresh = StoreFile::create(path_, mode, file_.get(), keepPicture);
    if (fresh == nullptr)
        return false;
    file_ = fresh;
    return true;
}

bool FrameStore::setMode(VideoMode mode) {
    wantedMode_ = mode;
    const WriterLock lock(path_);
    if (!lock.held() || !openForWriting())
        return false;
    return file_->mode() == mode || renew(mode, true);
}

bool FrameStore::takeOver(VideoMode mode) {
    wantedMode_ = mode;
    const WriterLock lock(path_);
    if (!lock.held() || !openForWriting() || (file_->mode() != mode && !renew(mode, true)))
        return false;
    turn_ = ++file_->header().turn;
    return true;
}

bool FrameStore::reset(VideoMode mode) {
    wantedMode_ = mode;
    const WriterLock lock(path_);
    return lock.held() && renew(mode, false);
}

Drawing FrameStore::draw() {
    auto lock = std::make_unique<WriterLock>(path_);
    if (!lock->held() || !openForWriting())
        return {nullptr, nullptr};
    if (turn_ != 0 && file_->header().turn > turn_)
        return {nullptr, nullptr};
    return {file_, std::move(lock)};
}

FrameInfo FrameStore::draw(const void* bgrx, int width, int height, std::size_t stride, std::int32_t source) {
    Drawing drawing = draw();
    if (!drawing)
        return {};
    if (width != drawing.width() || height != drawing.height()) {
        logmsg(3, "A picture of %dx%d does not fit the screen of %dx%d", width, height, drawing.width(),
               drawing.height());
        return {};
    }
    const auto* row = static_cast<const std::uint8_t*>(bgrx);
    for (int y = 0; y < height; ++y)
        std::memcpy(drawing.pixels() + static_cast<std::size_t>(y) * drawing.stride(),
                    row + static_cast<std::size_t>(y) * stride, drawing.stride());
    return drawing.commit(source);
}

bool FrameStore::blank() {
    // Without the lock, because a player that was stopped while it draws holds it. If the store is being replaced
    // now, the new file may have the old value, so the loop looks for a new file afterwards.
    for (int attempt = 0; attempt < 3; ++attempt) {
        follow();
        if (file_ == nullptr || !file_->writable()) {
            const WriterLock lock(path_);
            if (!lock.held() || !openForWriting())
                return false;
        }
        file_->header().blankedAt = gettimeusec();
        file_->announceChange();
        if (file_->current())
            return true;
    }
    return false;
}

} // namespace screen
