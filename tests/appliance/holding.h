// Players and supervisor, held where a test wants them: stopped, or about to begin.
#pragma once

#include "tests/appliance/appliance.h"

#include <functional>

namespace appliance {

// Stops a process: returns when all its threads stand still, which is later than kill() does.
void stop(int pid);

// Stops the supervisor (not its players), so that a test can bring the others into position.
class Frozen {
public:
    explicit Frozen(Appliance& decoder);
    ~Frozen();
    Frozen(const Frozen&) = delete;
    Frozen& operator=(const Frozen&) = delete;

private:
    Appliance& decoder_;
};

// A player other than this one, as soon as there is one; -1 when none comes.
int newPlayer(const Appliance& decoder, int otherThan = -1);

// `action` makes a player announce itself; returns when the announcement waits in the frozen supervisor's
// queue. Only in an isolated process.
void awaitAnnouncement(const std::function<void()>& action);

} // namespace appliance
