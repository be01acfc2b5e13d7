// Watches the screen of the appliance below APPLIANCE_ROOT: screen_watch SOURCE LIMIT SECONDS. It waits at most LIMIT
// seconds until pictures with the mark of SOURCE have moved, prints "first", and counts for SECONDS more what it sees:
//     pictures=125 different=124 marked=125 size=640x480
// "different" counts pictures whose content is not that of the one before, "marked" those with the mark of SOURCE.
// The exit status is 1 if no such picture moved in time.
#include "appliance/screen/frame_store.h"
#include "tests/support/screen_picture.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <set>

namespace {

using Clock = std::chrono::steady_clock;

class Watch {
public:
    explicit Watch(int source) : source_(source) {}

    // Waits for the next picture for a tenth of a second and looks at it.
    void look() {
        const std::uint64_t number = store_.wait(seen_, 100);
        if (number == seen_ || !store_.newest(frame_))
            return;
        seen_ = number;
        ++pictures_;
        different_ += frame_.bytes != before_ ? 1 : 0;
        before_ = frame_.bytes;
        const auto mark = screen::markIn(frame_);
        if (mark && mark->source == source_) {
            ++marked_;
            counters_.insert(mark->counter);
        }
    }

    bool moves() const { return counters_.size() >= 3; }

    void startAgain() { pictures_ = different_ = marked_ = 0; }

    void print() const {
        std::printf("pictures=%d different=%d marked=%d size=%dx%d\n", pictures_, different_, marked_,
                    frame_.shape.width, frame_.shape.height);
    }

private:
    int source_;
    screen::FrameStore store_;
    screen::Frame frame_;
    decltype(screen::Frame::bytes) before_;
    std::set<int> counters_;
    std::uint64_t seen_ = 0;
    int pictures_ = 0;
    int different_ = 0;
    int marked_ = 0;
};

Clock::time_point inSeconds(const char* text) {
    return Clock::now() + std::chrono::milliseconds(static_cast<int>(std::atof(text) * 1000));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: screen_watch SOURCE LIMIT SECONDS\n", stderr);
        return 2;
    }
    Watch watch(std::atoi(argv[1]));
    for (const Clock::time_point limit = inSeconds(argv[2]); !watch.moves() && Clock::now() < limit;)
        watch.look();
    if (!watch.moves()) {
        watch.print();
        return 1;
    }
    std::puts("first");
    std::fflush(stdout);
    watch.startAgain();
    for (const Clock::time_point end = inSeconds(argv[3]); Clock::now() < end;)
        watch.look();
    watch.print();
    return 0;
}
