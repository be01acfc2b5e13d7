#include "appliance/screen/frame_store.h"

#include "appliance/screen/store_file.h"
#include "appliance/screen/writer_lock.h"

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

// The call that takes a timespec as the C library has it: with 64-bit times, also where a long has 32 bits.
static_assert(sizeof(time_t) == 8);
#if defined(SYS_futex_time64)
constexpr long futexCall = SYS_futex_time64;
#else
constexpr long futexCall = SYS_futex;
#endif

void futexWait(std::atomic<std::uint32_t>& word, std::uint32_t seen, int timeoutMs) {
    const timespec timeout{timeoutMs / 1000, timeoutMs % 1000 * 1'000'000L};
    syscall(futexCall, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAIT, seen, &timeout, nullptr, 0);
}

// How long a drawing does not ask for memory again after there was none.
constexpr std::int64_t memoryPauseUs = 1'000'000;
// How often a reader begins again when its picture was overwritten. Three drawings have to complete while it looks.
constexpr int readAttempts = 64;

// What is between the rows is from earlier pictures in the same slot.
void clearGaps(Frame& frame) {
    for (const PlaneLayout& plane : planesOf(frame.shape))
        for (int row = 0; row < plane.rows && plane.stride > plane.rowBytes; ++row)
            std::memset(frame.bytes.data() + plane.offset + static_cast<std::size_t>(row) * plane.stride +
                            plane.rowBytes,
                        0, plane.stride - plane.rowBytes);
}

// Never touches memory behind the last row of `from`.
void copyPlane(const std::uint8_t* from, std::size_t fromStride, std::uint8_t* to,
               const PlaneLayout& layout) {
    const auto rows = static_cast<std::size_t>(layout.rows);
    if (fromStride == layout.stride) {
        std::memcpy(to, from, (rows - 1) * layout.stride + layout.rowBytes);
        return;
    }
    for (std::size_t row = 0; row < rows; ++row)
        std::memcpy(to + row * layout.stride, from + row * fromStride, layout.rowBytes);
}

} // namespace

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
    if (file_ == nullptr)
        disuse(reason);
    else
        lastReason_.clear();
    return file_ != nullptr;
}

void FrameStore::disuse(const std::string& reason) {
    file_.reset();
    if (!reason.empty() && reason != lastReason_)
        logmsg(3, "Frame store %s is not used: %s", path_.c_str(), reason.c_str());
    lastReason_ = reason;
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
    return renew(wantedMode_, 0, false);
}

void FrameStore::refuse(const std::string& reason) {
    if (reason != lastRefusal_)
        logmsg(3, "Frame store %s: %s", path_.c_str(), reason.c_str());
    lastRefusal_ = reason;
}

bool FrameStore::present() {
    return openForReading();
}

bool FrameStore::newest(Frame& out) {
    for (int attempt = 0; attempt < readAttempts; ++attempt) {
        bool called = false;
        const bool whole = visitNewest([&](const PictureView& picture, const FrameInfo& info) {
            called = true;
            scratch_.info = info;
            scratch_.shape = picture.shape;
            scratch_.bytes.resize(bytesOf(picture.shape));
            std::memcpy(scratch_.bytes.data(), picture.plane[0], scratch_.bytes.size());
        });
        if (whole) {
            clearGaps(scratch_);
            std::swap(out, scratch_);
        }
        if (whole || !called)
            return whole;
    }
    return false;
}

bool FrameStore::visitNewest(const LookAtFrame& look) {
    for (int attempt = 0; attempt < readAttempts; ++attempt) {
        const std::uint64_t number = openForReading() ? file_->newest() : 0;
        if (number == 0)
            return false;
        bool called = false;
        const bool whole = visit(number, [&](const PictureView& picture, const FrameInfo& info) {
            called = true;
            look(picture, info);
        });
        if (called || !file_)
            return whole;
    }
    return false;
}

bool FrameStore::visit(std::uint64_t number, const LookAtFrame& look) {
    if (number == 0 || !openForReading())
        return false;
    const std::shared_ptr<StoreFile> file = file_; // `look` may use this object
    const SlotContent content = file->content(number);
    if (content.state == SlotContent::State::broken)
        disuse("a picture has no usable shape");
    if (content.state != SlotContent::State::picture)
        return false;
    look(viewOf(content.shape, std::as_const(*file).picture(number)), content.info);
    return file->stillThere(number);
}

FrameInfo FrameStore::newestInfo() {
    for (int attempt = 0; attempt < readAttempts; ++attempt) {
        if (!openForReading())
            return {};
        const std::uint64_t number = file_->newest();
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
    const std::uint64_t newest = file_->newest();
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
        const std::uint64_t newest = open ? file_->newest() : 0;
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
bool FrameStore::renew(VideoMode mode, std::size_t pictureBytes, bool keepPicture) {
    std::string reason;
    const std::shared_ptr<StoreFile> fresh =
        StoreFile::create(path_, {mode, pictureBytes, keepPicture}, file_.get(), reason);
    if (fresh == nullptr) {
        noMemoryUntil_ = gettimeusec() + memoryPauseUs;
        refuse(reason);
        return false;
    }
    noMemoryUntil_ = 0;
    lastRefusal_.clear();
    file_ = fresh;
    return true;
}

// Opens the store in this mode. The caller holds the writers' lock.
bool FrameStore::openAs(VideoMode mode) {
    wantedMode_ = mode;
    if (!openForWriting())
        return false;
    if (file_->mode() != mode) {
        file_->header().mode = static_cast<std::uint32_t>(mode);
        file_->announceChange();
    }
    return true;
}

bool FrameStore::setMode(VideoMode mode) {
    const WriterLock lock(path_);
    return lock.held() && openAs(mode);
}

bool FrameStore::takeOver(VideoMode mode) {
    const WriterLock lock(path_);
    if (!lock.held() || !openAs(mode))
        return false;
    takeOver_ = ++file_->header().takeOvers;
    return true;
}

bool FrameStore::reset(VideoMode mode) {
    wantedMode_ = mode;
    const WriterLock lock(path_);
    if (!lock.held())
        return false;
    std::string reason;
    follow();
    if (file_ == nullptr || !file_->writable())
        file_ = StoreFile::open(path_, true, reason);
    return renew(mode, 0, false);
}

// Makes the store large enough. The caller holds the writers' lock and has opened the store.
bool FrameStore::makeRoom(const PictureShape& shape) {
    const std::size_t bytes = bytesOf(shape);
    return bytes <= file_->slotBytes() || renew(file_->mode(), bytes, true);
}

bool FrameStore::reserve(const PictureShape& shape) {
    if (const char* fault = faultOf(shape)) {
        refuse(std::string("a picture is refused: ") + fault);
        return false;
    }
    const WriterLock lock(path_);
    return lock.held() && openForWriting() && makeRoom(shape);
}

Drawing FrameStore::draw(const PictureShape& shape) {
    if (const char* fault = faultOf(shape)) {
        refuse(std::string("a picture is refused: ") + fault);
        return {};
    }
    auto lock = std::make_unique<WriterLock>(path_);
    if (!lock->held())
        return {};
    follow();
    // Asking for memory costs time on a full file system, so a player does not do that with each of its pictures.
    const bool room = file_ != nullptr && file_->writable() && bytesOf(shape) <= file_->slotBytes();
    if (!room && gettimeusec() < noMemoryUntil_)
        return {};
    if (!openForWriting() || (takeOver_ != 0 && file_->header().takeOvers > takeOver_) || !makeRoom(shape))
        return {};
    return {file_, std::move(lock), shape};
}

FrameInfo FrameStore::draw(const PictureView& picture, std::int32_t source) {
    if (const char* fault = faultOf(picture)) {
        refuse(std::string("a picture is refused: ") + fault);
        return {};
    }
    Drawing drawing = draw(picture.shape);
    if (!drawing)
        return {};
    const PlaneLayouts planes = planesOf(picture.shape);
    for (std::size_t i = 0; i < planes.size() && planes[i].rows > 0; ++i)
        copyPlane(picture.plane[i], picture.stride[i], drawing.plane(static_cast<int>(i)), planes[i]);
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
