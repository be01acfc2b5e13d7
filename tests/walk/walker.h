// A random walk: events, faults and waits, chosen at random from a seed.
#pragma once

#include "tests/walk/decoder.h"

#include <random>

namespace walk {

class Walker {
public:
    explicit Walker(const Start& start);

    // Walks for the requested time, ends the supervisor, and returns what happened. `problem` is set to what the
    // walk itself found wrong, or to "".
    History walk(std::string& problem);
    const Decoder& decoder() const { return decoder_; }

private:
    // Random choices.
    int below(int limit);
    bool chance(int percent) { return below(100) < percent; }
    template<class T>
    const T& oneOf(const std::vector<T>& values) {
        return values[static_cast<std::size_t>(below(static_cast<int>(values.size())))];
    }

    // Single steps.
    void step();
    void act();
    void select(int index);
    int otherSource();
    int anySource();
    void raiseAlarm();
    void disconnect();
    void connect();
    void change();
    void killPlayer();
    void planPlayer();
    void faultEncoder();
    void sendStrange();
    void burst();
    void rest();
    void waitOut();
    std::string exitWords();

    // Short stories: sequences of steps that random choices alone would rarely make.
    void story();
    bool reachPlaying();
    void playerEndsOnHangUp();
    void pendingEndsWhileCurrentLeaves();
    void currentEndsDuringLaunch();
    void detectionFailsWhilePlaying();
    void crashDuringPause();
    void crashWithTimeLeft();
    void lockAgain();
    void noSources();
    void playsWithoutSequence();
    void pauseDuringDetection();
    void flushAndSelect();
    void crashThenEvents();
    void alarmWhileDisconnected();

    bool ready();
    std::string stillReacts();
    bool manual() const { return decoder_.settings().mode == "manual"; }
    bool timeFor(int seconds) const;

    Start start_;
    std::mt19937 random_;
    Decoder decoder_;
    Time until_;
    int tag_ = 1000;
};

} // namespace walk
