// The world around the machine: players, encoders, timers and the user, as far as the machine can tell.
//
// It stands behind the fakes. Whenever the machine waits and nothing is there for it, the next step of the
// list happens; what a step says about the next barrier, detection or launch is kept until there is one.
// After the last step the world is kind: everything succeeds, and whatever the machine waits for comes.
// Players behave as real ones do: one that was hung up and released at its second barrier exits by itself;
// whoever waits for a player that is gone waits for ever, which is a violation.
#pragma once

#include "launcher/model/checker/step.h"

#include <libcommon/events.h>

#include <deque>
#include <span>
#include <string>
#include <vector>

struct SourceEntry;

namespace checker {

struct Player {
    int pid;
    int source; // launched for
    bool hungUp = false;
    bool leaving = false; // exits as soon as the machine waits
};

class World {
public:
    // Resets all fakes, installs itself behind them and applies the steps of configuration that the list
    // begins with.
    explicit World(const Steps& steps);
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    // The list is over.
    bool isKind() const { return kind_; }

    // What a kind world tells the machine whenever it waits: to connect, or (at first) to disconnect.
    void tellToConnect() { tellToConnect_ = true; }

    const std::vector<Player>& players() const { return alive_; }
    std::size_t stepsTaken() const { return next_; }

    // What the machine did that nobody may do, "" so far.
    const std::string& violation() const { return violation_; }

private:
    void installFakes();
    bool somethingHappens(); // the machine waits
    void becomeKind();
    bool kindnessHappens();
    void take(const Step& step);
    void happen(const Step& step);
    void deliverWhatCameMeanwhile();

    int meet(int barrierId, std::span<const int> pids);
    int barrierComesTo(Kind outcome, int barrierId, std::span<const int> pids);
    void release(int barrierId, std::span<const int> pids);
    SourceEntry* detect(int source);
    int launch(SourceEntry* entry);
    void hangUp(int pid);

    Player* find(int pid);
    void exitOf(int pid, int status);
    bool someoneLeaves();
    void fireOwnTimer();
    void fireStaleTimer() const;
    void configureSources(int count, int enabledMask) const;
    void blame(const std::string& what);

    const Steps& steps_;
    std::size_t next_ = 0;
    std::vector<Step> meanwhile_;
    std::deque<Kind> barriers_;
    std::deque<Kind> detections_;
    int failingLaunches_ = 0;
    std::vector<Player> alive_;
    int nextPid_ = 1000;
    int firedTimer_ = 0;
    bool kind_ = false;
    bool tellToConnect_ = false;
    std::string violation_;
};

} // namespace checker
