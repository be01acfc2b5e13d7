// The pixels of an X server's screen, read from the file that the server keeps them in.
//
// Reading disturbs neither the server nor its clients, so that every player is measured the same way: by looking four
// times a millisecond. (The old source's last picture is often replaced within a millisecond.)
#pragma once

#include "appliance/mark/frame_mark.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <sched.h>
#include <string>

namespace bench {

// Milliseconds on a clock that never jumps.
double clockMs();

// Lets the calling thread look in time while it exists, although the programs that it watches keep all processors busy.
// Only a privileged user may; without it, a picture that shows for 2 ms is missed now and then, and the gap seems to be a
// period longer.
class InTime {
public:
    InTime();
    ~InTime();
    InTime(const InTime&) = delete;
    InTime& operator=(const InTime&) = delete;

private:
    int policy_ = 0; // before
    sched_param priority_{};
};

class Pixels {
public:
    // Maps the file (XServer::pixelFile()). Throws std::runtime_error when it is not one.
    explicit Pixels(const std::string& file);
    ~Pixels();
    Pixels(const Pixels&) = delete;
    Pixels& operator=(const Pixels&) = delete;

    int width() const { return width_; }
    int height() const { return height_; }

    // The mark that the screen shows now; nothing while a picture is being drawn and where there is none.
    std::optional<FrameMark> mark() const { return readFrameMark(first(), width_, height_, stride_); }

    // The brightness of one pixel now, 0 to 255.
    int brightness(int x, int y) const;

private:
    const std::uint8_t* first() const { return bytes_ + offset_; }

    const std::uint8_t* bytes_ = nullptr;
    std::size_t size_ = 0;
    std::size_t offset_ = 0; // of the first pixel
    int width_ = 0;
    int height_ = 0;
    int stride_ = 0;
};

// Watches the marks on a screen. One thread.
class Watcher {
public:
    explicit Watcher(const Pixels& pixels) : pixels_(pixels) {}

    // Looks four times a millisecond until a new picture of `source` shows or the time is over. Returns when that was seen.
    // -1: of any source.
    std::optional<double> await(int source, double until);

    // Looks until that time.
    void watch(double until) { await(nobody, until); }

    std::optional<FrameMark> last() const { return last_; }
    double lastTime() const { return lastTime_; } // when the last mark was first seen

private:
    static constexpr int nobody = 1000;
    bool look(); // whether there is a new mark

    const Pixels& pixels_;
    std::optional<FrameMark> last_;
    double lastTime_ = 0;
};

} // namespace bench
