// The frame store's file: its layout, how it is opened, and how a new one takes its place.
//
// Layout: one page-rounded StoreHeader, then `slotCount` pictures. A picture with number N lies in slot
// N % slotCount; its slot's `sequence` is 2N when whole and odd while somebody draws there. What readers need
// is in atomics, because writers change it under their eyes.
//
// A file is only ever replaced as a whole (rename), complete and backed by memory, never resized; so a
// mapping stays valid for as long as nobody outside cuts the file, and that is looked at before each use.
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
    std::atomic<std::uint64_t> number; // 0 while it is written
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
    std::atomic<std::uint32_t> changes; // futex: counts hand-ins, blankings and retirement
    std::atomic<std::uint32_t> retired; // 1: another file has taken this one's place
    std::atomic<std::uint64_t> newest;  // number; 0 none
    std::atomic<std::int64_t> newestTime;
    std::atomic<std::int64_t> blankedAt;
    std::atomic<std::uint64_t> turn; // counts take-overs
    FrameSlot slot[slotCount];
    FrameRecord record[recordCount];
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free &&
              std::atomic<std::uint32_t>::is_always_lock_free);

// The lock that writers hold: a file beside the store that is never replaced.
class WriterLock {
public:
    // Takes it, waiting at most a second. `held()` is false, with a log line, when that failed.
    explicit WriterLock(const std::string& storePath);
    WriterLock(const WriterLock&) = delete;
    WriterLock& operator=(const WriterLock&) = delete;
    ~WriterLock();
    bool held() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

// One open, mapped store file. Unmapped when the last owner lets go, so that a Drawing outlives a reopening.
class StoreFile {
public:
    // Opens and checks the file; null when there is none or it is not to be used (`reason` then tells why,
    // and is empty when there simply is no file).
    static std::shared_ptr<StoreFile> open(const std::string& path, bool writable, std::string& reason);

    // Makes a new file in this mode and puts it at `path`, carrying over what `old` (may be null) has
    // recorded. The caller holds the writers' lock. Null with a log line on failure; the old file then is as
    // it was.
    static std::shared_ptr<StoreFile> create(const std::string& path, VideoMode mode, StoreFile* old,
                                             bool keepPicture);

    StoreFile(const StoreFile&) = delete;
    StoreFile& operator=(const StoreFile&) = delete;
    ~StoreFile();

    StoreHeader& header() { return *header_; }
    VideoMode mode() const { return mode_; }
    std::size_t pictureBytes() const;
    std::uint8_t* picture(std::uint64_t number); // the slot where the picture of that number lies
    bool writable() const { return writable_; }

    // False when the file was replaced, removed or cut since it was opened.
    bool current() const;

    // Tells everybody who waits that something changed.
    void announceChange();
    void retire();

private:
    StoreFile(int fd, StoreHeader* header, VideoMode mode, bool writable)
        : fd_(fd), header_(header), mode_(mode), writable_(writable) {}

    int fd_;
    StoreHeader* header_;
    VideoMode mode_; // as checked when it was opened; never read from the file again
    bool writable_;
};

// Bytes of a store file of that mode.
std::uint64_t storeFileSize(VideoMode mode);

} // namespace screen
