// The file of the frame store: its layout, opening and replacing it.
//
// Layout: one StoreHeader, rounded up to pages, then `slotCount` slots of `slotBytes`. The picture with number N is
// in slot N % slotCount, with its shape in the header. The slot's `sequence` is 2N when the picture is complete and
// odd while it is drawn. The fields that readers use are atomic, because writers change them meanwhile.
//
// A file is replaced as a whole (rename) by one that is complete and has its memory allocated; it is never
// resized. So a mapping stays valid unless another program truncates the file. Each use checks that first. A file
// for larger pictures replaces the earlier one and keeps its numbers, records, take-overs, times and newest picture.
//
// Nothing that was read from the file is used before it is checked, and it is not read again after the check:
// another program may write into the file at any time.
#pragma once

#include "appliance/screen/frame.h"
#include "appliance/screen/picture_shape.h"
#include "appliance/screen/video_mode.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace screen {

inline constexpr std::uint32_t slotCount = 4;
inline constexpr std::uint32_t recordCount = 256;

// Header fields hold the numbers of the enumerations, so that broken ones can be told.
struct SlotShape {
    std::atomic<std::uint32_t> width;
    std::atomic<std::uint32_t> height;
    std::atomic<std::uint32_t> format;
    std::atomic<std::uint32_t> aspectNumerator;
    std::atomic<std::uint32_t> aspectDenominator;
    std::atomic<std::uint32_t> matrix;
    std::atomic<std::uint32_t> fullRange; // 0 or 1
    std::atomic<std::uint32_t> turn;
};

struct FrameSlot {
    std::atomic<std::uint64_t> sequence;
    std::atomic<std::int64_t> time;
    std::atomic<std::int32_t> pid;
    std::atomic<std::int32_t> source;
    SlotShape shape;
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
    std::uint32_t slots;
    std::uint32_t records;
    std::uint32_t padding; // 0
    std::uint64_t slotBytes;
    std::uint64_t fileSize;
    std::atomic<std::uint32_t> mode;
    std::atomic<std::uint32_t> retired; // 1: this file was replaced
    std::atomic<std::uint32_t> changes; // futex: counts commits, blankings, mode changes and the replacement
    std::uint32_t padding2;             // 0
    std::atomic<std::uint64_t> newest;  // number; 0: none
    std::atomic<std::int64_t> newestTime;
    std::atomic<std::int64_t> blankedAt;
    std::atomic<std::uint64_t> takeOvers; // how often a player took the screen over
    FrameSlot slot[slotCount];
    FrameRecord record[recordCount];
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free &&
              std::atomic<std::uint32_t>::is_always_lock_free);
// The same on every processor, with pointers of 32 and of 64 bits.
static_assert(sizeof(FrameSlot) == 56 && sizeof(FrameRecord) == 24);
static_assert(offsetof(StoreHeader, slot) == 88 && sizeof(StoreHeader) == 6456);

// What the slot of a picture holds.
struct SlotContent {
    enum class State {
        picture, // a complete picture
        passed,  // not this picture: it was overwritten, or is being drawn
        broken   // its shape is not usable
    };
    State state = State::passed;
    FrameInfo info;
    PictureShape shape;
};

// One open, mapped store file. It stays mapped while it has an owner, so a Drawing outlives a reopening.
class StoreFile {
public:
    // Opens and checks the file. Null when it is missing or not usable; `reason` says why it is not usable, and is
    // empty for a missing file.
    static std::shared_ptr<StoreFile> open(const std::string& path, bool writable, std::string& reason);

    struct Wanted {
        VideoMode mode = VideoMode::pal;
        std::size_t pictureBytes = 0; // of the largest picture; the file is never smaller than the old one
        bool keepPicture = true;      // false: the newest picture is replaced by a black one, blanked now
    };
    // Creates a file and moves it to `path`, with what `old` holds (may be null). The caller holds the writers'
    // lock. Null with a `reason` on failure; the old file is then unchanged.
    static std::shared_ptr<StoreFile> create(const std::string& path, const Wanted& wanted, StoreFile* old,
                                             std::string& reason);

    StoreFile(const StoreFile&) = delete;
    StoreFile& operator=(const StoreFile&) = delete;
    ~StoreFile();

    StoreHeader& header() { return *header_; }
    bool writable() const { return writable_; }
    std::size_t slotBytes() const { return slotBytes_; }
    VideoMode mode() const; // PAL when the field is broken

    std::uint64_t newest() const; // number; 0: none, also when the field is broken
    SlotContent content(std::uint64_t number) const;
    bool stillThere(std::uint64_t number) const; // after using the picture: it was not overwritten meanwhile
    const std::uint8_t* picture(std::uint64_t number) const; // the slot of the picture with that number
    std::uint8_t* picture(std::uint64_t number);

    // Marks the slot of that picture as being drawn, in this shape.
    void begin(std::uint64_t number, const PictureShape& shape);

    // False when the file was replaced, removed or truncated since it was opened.
    bool current() const;

    // Wakes all waiters.
    void announceChange();

private:
    StoreFile(int fd, void* memory, std::size_t slotBytes, bool writable);
    const char* faultOfNewest() const;
    void carryOver(StoreFile& old, bool keepPicture);
    void retire();

    int fd_;
    StoreHeader* header_;
    std::size_t slotBytes_; // as checked on opening
    bool writable_;
};

// The size of a store file for pictures of that many bytes, and of the smallest one.
std::uint64_t storeFileSize(std::size_t pictureBytes);
std::uint64_t smallestStoreFile();

} // namespace screen
