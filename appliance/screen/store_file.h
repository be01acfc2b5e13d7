// The file of the frame store: its layout, opening and replacing it.
//
// Layout: one StoreHeader, rounded up to pages, then `slotCount` pictures. The picture with number N is in slot
// N % slotCount. The slot's `sequence` is 2N when the picture is complete and odd while it is drawn. The fields
// that readers use are atomic, because writers change them meanwhile.
//
// A file is replaced as a whole (rename) by one that is complete and has its memory allocated; it is never
// resized. So a mapping stays valid unless another program truncates the file. Each use checks that first.
#pragma once

#include "appliance/screen/frame_store.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace screen {

inline constexpr std::uint32_t slotCount = 4;
inline constexpr std::uint32_t recordCount = 256;

struct FrameSlot {
    std::atomic<std::uint64_t> sequence;
    std::atomic<std::int64_t> time;
    std::atomic<std::int32_t> pid;
    std::atomic<std::int32_t> source;
};

struct FrameRecord {
    std::atomic<std::uint64_t> number; // 0: being written
    std::atomic<std::int64_t> time;
    std::atomic<std::int32_t> pid;
    std::atomic<std::int32_t> source;
};

struct StoreHeader {
    char magic[8];
    std::uint32_t version;
    std::uint32_t mode;
    std::uint64_t fileSize;
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t slots;
    std::uint32_t records;
    std::atomic<std::uint32_t> changes; // futex: counts commits, blankings and the replacement
    std::atomic<std::uint32_t> retired; // 1: this file was replaced
    std::atomic<std::uint64_t> newest;  // number; 0: none
    std::atomic<std::int64_t> newestTime;
    std::atomic<std::int64_t> blankedAt;
    std::atomic<std::uint64_t> turn; // counts take-overs
    FrameSlot slot[slotCount];
    FrameRecord record[recordCount];
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free &&
              std::atomic<std::uint32_t>::is_always_lock_free);

// The writers' lock: a file beside the store that is never replaced.
class WriterLock {
public:
    // Waits at most a second for the lock. `held()` is false, with a log line, when that failed.
    explicit WriterLock(const std::string& storePath);
    WriterLock(const WriterLock&) = delete;
    WriterLock& operator=(const WriterLock&) = delete;
    ~WriterLock();
    bool held() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

// One open, mapped store file. It stays mapped while it has an owner, so a Drawing outlives a reopening.
class StoreFile {
public:
    // Opens and checks the file. Null when it is missing or not usable; `reason` says why it is not usable, and is
    // empty for a missing file.
    static std::shared_ptr<StoreFile> open(const std::string& path, bool writable, std::string& reason);

    // Creates a file in this mode and moves it to `path`, with the records of `old` (may be null). The caller
    // holds the writers' lock. Null with a log line on failure; the old file is then unchanged.
    static std::shared_ptr<StoreFile> create(const std::string& path, VideoMode mode, StoreFile* old,
                                             bool keepPicture);

    StoreFile(const StoreFile&) = delete;
    StoreFile& operator=(const StoreFile&) = delete;
    ~StoreFile();

    StoreHeader& header() { return *header_; }
    VideoMode mode() const { return mode_; }
    std::size_t pictureBytes() const;
    std::uint8_t* picture(std::uint64_t number); // the slot of the picture with that number
    bool writable() const { return writable_; }

    // False when the file was replaced, removed or truncated since it was opened.
    bool current() const;

    // Wakes all waiters.
    void announceChange();
    void retire();

private:
    StoreFile(int fd, StoreHeader* header, VideoMode mode, bool writable)
        : fd_(fd), header_(header), mode_(mode), writable_(writable) {}

    int fd_;
    StoreHeader* header_;
    VideoMode mode_; // as checked on opening; never read from the file again
    bool writable_;
};

// The size of a store file in that mode, in bytes.
std::uint64_t storeFileSize(VideoMode mode);

} // namespace screen
