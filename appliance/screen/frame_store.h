// The frame store: the frames on the appliance's monitor.
//
// Each appliance has one store, the shared file /run/decoder/screen/frames below the appliance root. Players
// draw complete pictures into it; the monitor window, the panel, snapshots, tests and benchmarks read them. The
// store keeps the newest pictures in a short ring, so that a reader can copy one while the next is drawn. It
// records the last 256 commits (number, time, pid, source), so that a benchmark misses none.
//
// Pictures are BGRx: 32 bits for each pixel, blue in the first byte, the fourth byte unused. As a number of this
// machine a pixel is 0x00RRGGBB, which is cairo's RGB24. There is no gap between rows.
//
// Guarantees, also across processes and when a process is killed while it draws:
// - A reader gets one complete picture, never parts of two.
// - Numbers begin at 1 and grow by one with each commit; none is used twice. Times never go back.
// - An unfinished drawing leaves no trace.
// - A store that is missing, truncated, garbage, of another layout or older than the machine's last restart is
//   never used: readers see no frame, writers create a new store. No access ends in a signal.
// - A change of the video mode replaces the store; processes that have it open follow at their next call.
// - When one player takes the screen over from another, drawings of the earlier one are dropped. So its last
//   picture can't appear after the first one of the new player.
//
// Writers exclude each other with a file lock, which the kernel releases when its holder dies. A call fails
// when it can't get the lock within a second.
//
// A FrameStore object is for one thread at a time; every thread and process makes its own. Files are opened
// when they are needed, so an object may be made before the store exists. A repeated failure is logged once.
#pragma once

#include "appliance/screen/video_mode.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace screen {

// One committed picture.
struct FrameInfo {
    std::uint64_t number = 0; // 1, 2, 3, ...; 0: no frame
    std::int64_t time = 0;    // of the commit, on gettimeusec()'s clock
    std::int32_t pid = 0;     // of the process that drew it
    std::int32_t source = -1; // source index, from the process that drew it

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

// A picture being drawn, in the store's own memory. Readers see it after commit(). It holds the writers' lock,
// so fill it and commit it without doing anything else in between. Without commit() the picture is dropped.
class Drawing {
public:
    Drawing(Drawing&& other) noexcept;
    Drawing& operator=(Drawing&&) = delete;
    ~Drawing();

    explicit operator bool() const { return pixels_ != nullptr; } // false: there is no memory to draw in
    std::uint8_t* pixels() const { return pixels_; }              // not cleared: fill all of it
    int width() const { return width_; }
    int height() const { return height_; }
    std::size_t stride() const { return std::size_t(4) * static_cast<std::size_t>(width_); } // bytes

    // Publishes the picture and wakes the waiting readers. Returns its record; number 0 on failure.
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

    // ---- Reading. A store that can't be read is like one without frames, in PAL.

    bool present(); // there is a usable store

    // Copies the newest frame. False when there is none yet; `out` is then unchanged.
    bool newest(Frame& out);

    FrameInfo newestInfo(); // number 0: none yet

    // The records with a number greater than `after`, ascending, at most the last 256.
    std::vector<FrameInfo> infosSince(std::uint64_t after);

    // When the screen was last blanked, on gettimeusec()'s clock; 0: never. Frames committed at this time or
    // earlier are not visible.
    std::int64_t blankedAt();

    VideoMode mode();

    // Waits until the newest number differs from `seen`, or the screen was blanked or changed its mode, at most
    // `timeoutMs` milliseconds. Returns the newest number.
    std::uint64_t wait(std::uint64_t seen, int timeoutMs);

    // ---- Writing. False or an empty Drawing with a log line when the store can't be written.

    // Sets the mode; replaces the store if it has another mode or is missing. Numbers, records and the newest
    // picture stay (cut or framed in black), so that a switch between modes shows no black frame.
    bool setMode(VideoMode mode);

    // Like setMode(), and takes the screen over: from now on an object that took it over earlier gets an empty
    // Drawing, without a log line, until it takes the screen over again. Objects that never did are not limited.
    bool takeOver(VideoMode mode);

    // Replaces the store by a black one in this mode. Numbers and records stay.
    bool reset(VideoMode mode);

    // Begins a drawing in the size of the store's present mode. A missing store is created in the mode of this
    // object's last setMode() or reset(), or in PAL.
    Drawing draw();

    // Draws a finished picture of the store's present size. `stride` is the distance between rows in bytes, at
    // least 4 * width. Number 0 on failure and when the store has another size.
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
    std::uint64_t turn_ = 0;          // number of this object's take-over; 0: none
    std::shared_ptr<StoreFile> file_; // null: not open
    std::string lastReason_;          // why the store was last refused; logged once
    Frame scratch_;                   // reuses the memory of the last copy
};

} // namespace screen
