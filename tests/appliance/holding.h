// Stopping players and the supervisor at the point that a test needs.
#pragma once

#include "tests/appliance/appliance.h"

#include <functional>

namespace appliance {

// Sends SIGSTOP and waits until all threads of the process have stopped; kill() returns earlier.
void stop(int pid);

// Stops the supervisor, but not its players, so that a test can prepare the players.
class Frozen {
public:
    explicit Frozen(Appliance& decoder);
    ~Frozen();
    Frozen(const Frozen&) = delete;
    Frozen& operator=(const Frozen&) = delete;

private:
    Appliance& decoder_;
};

// Waits for a player other than `otherThan`. Returns its pid, or -1 when there is none in time.
int newPlayer(const Appliance& decoder, int otherThan = -1);

// Runs `action`, which makes a player announce itself, and waits until the announcement is in the queue of the
// frozen supervisor. Only in an isolated process.
void awaitAnnouncement(const std::function<void()>& action);

} // namespace appliance
