// Pictures that arrive but whose content does not change.
//
// A constant scene is no fault: it is told as the status "Still" of the source, in seconds, and ends the player only
// where the configuration says so. A stream whose pictures stop coming is another matter; the time limit of -r is
// for that.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

namespace player {

struct StillnessSettings {
    int after = 10;          // seconds of equal content before it is told; 0: never
    bool endsPlayer = false; // the player then ends
};

// Reads Player.StillAfter and Player.EndWhenStill. Any thread.
StillnessSettings stillnessSettings();

// For how many seconds the content has been the same; 0: it moves, or not long enough to be told. Times are on
// gettimeusec()'s clock; `lastChange` 0: there was no picture yet.
int secondsStill(const StillnessSettings& settings, std::int64_t lastChange, std::int64_t now);

// Writes the status "Still" of one source on its own thread, because a write may wait seconds for the lock of the
// status store. Any thread.
class StillnessReport {
public:
    explicit StillnessReport(int source) : source_(source) {}
    // Never destroyed: its thread runs until the process ends.

    // Writes this number of seconds, or clears the status when it is 0. Also clears at its first call what a killed
    // player left there. A value that is not written yet when the next one comes is dropped.
    void tell(int seconds);

    // Clears the status, if it was ever told, and waits at most that time until it is written.
    void clear(int patienceMs);

private:
    void write();

    const int source_;
    std::mutex lock_;                 // guards all that follows
    std::condition_variable changed_; // wanted_ or written_ changed
    int wanted_ = -1;                 // -1: nothing was told yet
    int written_ = -1;
};

} // namespace player
