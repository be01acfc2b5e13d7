// How long the changes of the source on the screen take, from what the frame store records about each frame. Pure: the
// caller passes the records and the times. One thread.
#pragma once

#include "appliance/screen/frame.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace panel {

// All times are microseconds on gettimeusec()'s clock. Sources are indices of the list in force.
struct SwitchEvent {
    enum class Kind {
        Answered, // a selection was answered: `seconds` from it to the source's first picture
        Gap,      // another source shows: `seconds` between the last picture before and its first one
        Start,    // a player began to show a source that was not shown before
        Restart,  // another player shows the same source
        Stall,    // the source that shows gave no picture for `seconds`
    };
    Kind kind = Kind::Gap;
    int source = -1;
    double seconds = 0;
};

class SwitchTimes {
public:
    // A picture later than this after a selection is not its answer; a gap that is longer is none of a switch.
    static constexpr std::int64_t longestUs = 60'000'000;
    static constexpr std::int64_t stallUs = 2'000'000;

    // A source was selected at that time. A later selection replaces it.
    void selected(int source, std::int64_t time);

    // The records since the last call, in their order; those that were seen before are passed over. Records that the
    // store no longer has are missing; then nothing is measured across the hole.
    std::vector<SwitchEvent> add(const std::vector<screen::FrameInfo>& infos);

    // The newest number that add() has seen; 0: none.
    std::uint64_t seen() const { return last_.number; }

    // Since when the source of the newest frame has been on the screen; 0: no frame yet.
    std::int64_t shownSince() const { return shownSince_; }
    int source() const { return last_.number == 0 ? -1 : last_.source; }

private:
    void addOne(const screen::FrameInfo& info, std::vector<SwitchEvent>& events);
    void answer(const screen::FrameInfo& info, std::vector<SwitchEvent>& events);

    struct Selection {
        int source = -1;
        std::int64_t time = 0;
    };
    std::optional<Selection> selection_;
    screen::FrameInfo last_;
    std::int64_t shownSince_ = 0;
};

} // namespace panel
