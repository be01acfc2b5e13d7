// Simulates the world around the machine, behind the fakes: players, encoders, timers and the user.
//
// When the machine waits and no event is queued for it, the next step of the list happens. An outcome for the next
// barrier, detection or launch is kept until it is needed. After the last step the world is kind: everything succeeds,
// and the event that the machine waits for comes. Players behave like real ones: a player that was hung up and released
// at its second barrier exits by itself. A wait for a player that is gone would never end and is a violation.
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
    bool leaving = false; // exits when the machine waits the next time
};

class World {
public:
    // Resets all fakes, installs itself behind them and applies the configuration steps at the beginning of the list.
    explicit World(const Steps& steps);
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    // Whether the last step of the list has happened.
    bool isKind() const { return kind_; }

    // From now on a kind world tells the machine to connect whenever it waits; before this call, to disconnect.
    void tellToConnect() { tellToConnect_ = true; }

    const std::vector<Player>& players() const { return alive_; }
    std::size_t stepsTaken() const { return next_; }

    // The first forbidden action of the machine; "" for none.
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
