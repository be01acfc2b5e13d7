// The frame store: the frames on the appliance's monitor.
//
// Each appliance has one store, the shared file /run/decoder/screen/frames below the appliance root. Players
// draw complete pictures into it; the monitor window, the panel, snapshots, tests and benchmarks read them. The
// store keeps the newest pictures in a short ring, so that a reader can copy one while the next is drawn. It
// records the last 256 commits (number, time, pid, source), so that a benchmark misses none.
//
// Each picture has its own shape (picture_shape.h): players hand in what their decoders make, and the readers
// scale, convert and turn it. The ring has 4 slots of the largest picture so far. A larger picture replaces the
// file by a larger one; it never becomes smaller while it is in use. Its size in MB (1,000,000 bytes):
//
//     largest picture       I420, NV12    BGRx
//     720x576, 1280x720            6.6     6.6, 14.8    the smallest store
//     1920x1080                   12.5    33.2
//     3840x2160                   49.8   132.7
//     4096x4096                  100.7   268.4
//
// Guarantees, also across processes and when a process is killed while it draws:
// - A reader gets one complete picture, never parts of two.
// - Numbers begin at 1 and grow by one with each commit; none is used twice. Times never go back.
// - An unfinished drawing leaves no trace.
// - A store that is missing, truncated, garbage, of another layout or older than the machine's last restart is
//   never used: readers see no frame, writers create a new store. No access ends in a signal.
// - When the file is replaced, numbers, records and the newest picture stay; processes that have it open follow at
//   their next call. The memory of the new file is allocated before: a full file system is an error message.
// - When one player takes the screen over from another, drawings of the earlier one are dropped. So its last
//   picture can't appear after the first one of the new player.
//
// Writers exclude each other with a file lock, which the kernel releases when its holder dies. A call fails
// when it can't get the lock within a second.
//
// A FrameStore object is for one thread at a time; every thread and process makes its own. Files are opened
// when they are needed, so an object may be made before the store exists. A repeated failure is logged once.
#pragma once

#include "appliance/screen/drawing.h"
#include "appliance/screen/frame.h"
#include "appliance/screen/picture_shape.h"
#include "appliance/screen/video_mode.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace screen {

class StoreFile;

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

    // Calls look(picture, info) on the newest picture in the store's own memory, without a copy. The picture is valid
    // during the call. Returns true only when it was not overwritten meanwhile; otherwise throw away what was made
    // of it and call again. False without a call of `look` when there is no frame yet.
    using LookAtFrame = std::function<void(const PictureView&, const FrameInfo&)>;
    bool visitNewest(const LookAtFrame& look);

    // The same for the picture with that number (at least 1). False without a call of `look` when the ring does not have
    // it: it was overwritten, or there is none with that number yet.
    bool visit(std::uint64_t number, const LookAtFrame& look);

    FrameInfo newestInfo(); // number 0: none yet

    // The records with a number greater than `after`, ascending, at most the last 256.
    std::vector<FrameInfo> infosSince(std::uint64_t after);

    // When the screen was last blanked, on gettimeusec()'s clock; 0: never. Frames committed at this time or
    // earlier are not visible.
    std::int64_t blankedAt();

    VideoMode mode();

    // Waits until the newest number differs from `seen`, or the screen was blanked, changed its mode or got another
    // file, at most `timeoutMs` milliseconds. Returns the newest number.
    std::uint64_t wait(std::uint64_t seen, int timeoutMs);

    // ---- Writing. False or an empty Drawing with a log line when the store can't be written.

    // Sets the mode and creates the store if it is missing. The pictures stay as they are.
    bool setMode(VideoMode mode);

    // Like setMode(), and takes the screen over: from now on an object that took it over earlier gets an empty
    // Drawing, without a log line, until it takes the screen over again. Objects that never did are not limited.
    bool takeOver(VideoMode mode);

    // Replaces the store by one in this mode with a black picture, blanked. Numbers, records and size stay.
    bool reset(VideoMode mode);

    // Makes the store large enough for pictures of this shape, so that the first drawing does not wait for that. A
    // missing store is created in the mode of this object's last setMode(), takeOver() or reset(), or in PAL.
    bool reserve(const PictureShape& shape);

    // Begins a drawing of this shape; does first what reserve() does. After a failure to get memory it does not try
    // again for a second.
    Drawing draw(const PictureShape& shape);

    // Draws a finished picture. Each stride is at least a row of its plane. Number 0 on failure.
    FrameInfo draw(const PictureView& picture, std::int32_t source);

    // Turns the screen black until the next frame.
    bool blank();

private:
    bool openForReading();
    bool openForWriting();
    bool openAs(VideoMode mode);
    bool makeRoom(const PictureShape& shape);
    bool renew(VideoMode mode, std::size_t pictureBytes, bool keepPicture);
    void follow();
    void disuse(const std::string& reason);
    void refuse(const std::string& reason);

    std::string path_;
    VideoMode wantedMode_ = VideoMode::pal;
    std::uint64_t takeOver_ = 0;      // number of this object's take-over; 0: none
    std::shared_ptr<StoreFile> file_; // null: not open
    std::string lastReason_;          // why the store was last not used; logged once
    std::string lastRefusal_;         // why a change was last refused; logged once
    std::int64_t noMemoryUntil_ = 0;  // don't ask for memory before; on gettimeusec()'s clock
    Frame scratch_;                   // reuses the memory of the last copy
};

} // namespace screen
