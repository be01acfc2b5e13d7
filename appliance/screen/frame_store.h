// The frame store: what stands on the appliance's monitor.
//
// One store an appliance, the shared file /run/decoder/screen/frames below the appliance root. Players draw
// whole pictures into it; the monitor window, the panel, snapshots, tests and benchmarks read them. The store
// keeps the newest pictures in a short ring, so that a reader copies one while the next is drawn, and a
// record of the last 256 hand-ins (number, time, pid, source), so that a benchmark misses none.
//
// Pictures are BGRx: 32 bits a pixel, blue in the first byte, the fourth byte unused; as a number of this
// machine 0x00RRGGBB, which is cairo's RGB24. Rows follow each other without a gap.
//
// Promises, also across processes and when one of them is killed in the middle of a drawing:
// - A reader gets a whole picture of one hand-in, never parts of two.
// - Numbers begin at 1 and grow by one a hand-in; none comes twice. Times never go back.
// - A drawing that was not finished leaves no trace.
// - A store that is missing, cut short, garbage, of another layout or left over from before a restart of the
//   machine is never used: readers see no frame, writers make it anew. No access ends in a signal.
// - Another video mode makes the store anew while others have it open; they follow at their next call.
//
// - Of two players that hand the screen over, the one that took it over last draws; drawings of the other are
//   dropped, so that its last picture can't come after the first of the new one.
//
// Writers exclude each other with a file lock, which the kernel gives back when its holder dies. A lock that
// can't be had within a second fails the call.
//
// A FrameStore object belongs to one thread at a time; every thread and process makes its own. Nothing is
// opened before it is needed, so an object may be made before the store exists. Failures are logged once a
// cause.
#pragma once

#include "appliance/screen/video_mode.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace screen {

// One hand-in.
struct FrameInfo {
    std::uint64_t number = 0; // 1, 2, 3, ...; 0: no frame
    std::int64_t time = 0;    // when it was handed in, on gettimeusec()'s clock
    std::int32_t pid = 0;     // of the process that drew it
    std::int32_t source = -1; // source index that the drawer told

    bool operator==(const FrameInfo&) const = default;
};

struct Frame {
    FrameInfo info;
    VideoMode mode = VideoMode::pal;
    int width = 0;
    int height = 0;
    std::vector<std::uint32_t> pixels; // width * height, 0x00RRGGBB
};

class StoreFile;
class WriterLock;

// A picture being drawn, in the store's own memory; nobody sees it before commit(). The writers' lock is held
// meanwhile, so fill it and commit, and do nothing else in between. What is destroyed without commit() is
// dropped.
class Drawing {
public:
    Drawing(Drawing&& other) noexcept;
    Drawing& operator=(Drawing&&) = delete;
    ~Drawing();

    explicit operator bool() const { return pixels_ != nullptr; } // false: nothing to draw in
    std::uint8_t* pixels() const { return pixels_; }              // not cleared: fill all of it
    int width() const { return width_; }
    int height() const { return height_; }
    std::size_t stride() const { return std::size_t(4) * static_cast<std::size_t>(width_); } // bytes

    // Hands the picture in and wakes who waits for it. Returns what was recorded; number 0 on failure.
    FrameInfo commit(std::int32_t source);

private:
    friend class FrameStore;
    Drawing(std::shared_ptr<StoreFile> file, std::unique_ptr<WriterLock> lock);

    std::shared_ptr<StoreFile> file_;
    std::unique_ptr<WriterLock> lock_;
    std::uint8_t* pixels_ = nullptr;
    int width_ = 0;
    int height_ = 0;
    std::uint64_t number_ = 0;
};

class FrameStore {
public:
    FrameStore(); // this appliance's store
    explicit FrameStore(std::string path);
    FrameStore(FrameStore&&) noexcept;
    ~FrameStore();

    static std::string appliancePath(); // /run/decoder/screen/frames below the appliance root

    // ---- Reading. A store that can't be read is one without frames, in PAL.

    bool present(); // there is a store that can be used

    // Copies the newest frame: true; false when none was drawn yet (`out` is then unchanged).
    bool newest(Frame& out);

    FrameInfo newestInfo(); // number 0: none yet

    // The recorded hand-ins with a number greater than `after`, ascending, at most the last 256.
    std::vector<FrameInfo> infosSince(std::uint64_t after);

    // When the screen was last blanked, on gettimeusec()'s clock; 0 never. A frame handed in at this time or
    // before is not to be seen.
    std::int64_t blankedAt();

    VideoMode mode();

    // Waits until the newest number is another than `seen`, or something else about the screen changed
    // (blanked, mode), at most `timeoutMs` milliseconds. Returns the newest number.
    std::uint64_t wait(std::uint64_t seen, int timeoutMs);

    // ---- Writing. False or an empty Drawing with a log line when the store can't be written.

    // Makes the store be in this mode, making it anew where it is in another or missing. Numbers, records and
    // the newest picture stay (cut or framed in black), so that a hand-over between modes shows no black
    // frame.
    bool setMode(VideoMode mode);

    // As setMode(); from then on drawings of whoever took the screen over before are dropped (an empty
    // Drawing, without a log line), until they take it over again. Objects that never took it over draw as
    // they like.
    bool takeOver(VideoMode mode);

    // Makes the store anew in this mode, black. Numbers and records stay.
    bool reset(VideoMode mode);

    // Begins a drawing in the size of the store's present mode (a missing store is made in the mode that
    // setMode() or reset() last asked of this object, else PAL).
    Drawing draw();

    // Draws a finished picture of the store's present size. `stride` is bytes from row to row, at least 4 *
    // width. Number 0 when it failed or the store's size is another.
    FrameInfo draw(const void* bgrx, int width, int height, std::size_t stride, std::int32_t source);

    // Turns the screen black until the next frame.
    bool blank();

private:
    bool openForReading();
    bool openForWriting();
    bool renew(VideoMode mode, bool keepPicture);
    void follow();

    std::string path_;
    VideoMode wantedMode_ = VideoMode::pal;
    std::uint64_t turn_ = 0;          // of this object's take-over; 0: none
    std::shared_ptr<StoreFile> file_; // null: not open
    std::string lastReason_;          // why the store was last refused, so that it is logged once
    Frame scratch_;                   // keeps the memory of the last copy
};

} // namespace screen
