// The model's handlers: launching, switching and stopping players, and what happens when one ends.
#include "tests/walk/machine.h"

namespace walk {

namespace {

constexpr Time blankSleep = 2 * second;
constexpr long shortSleep = 4000;
constexpr int unknownPid = -2; // the supervisor was ended before it printed the pid

} // namespace

void Run::meetOr(Machine machine, int barrierId, bool current, bool pending, const std::string& passed,
                 const std::string& pendingEnded, const std::string& currentEnded) {
    std::set<int> pids;
    if (current) {
        pids.insert(machine.currentPid);
    }
    if (pending) {
        pids.insert(machine.pendingPid);
    }
    // A child that is not one of the players is dropped, and the state runs again.
    for (Meeting met = Meeting::waiting; (met = meet(machine, barrierId, pids)) != Meeting::waiting;) {
        Event event;
        if (met == Meeting::passed) {
            if (machine.state == "WAIT_LAUNCHED_PENDING_PLAYER") {
                machine.hangUps.push_back(machine.currentPid);
                if (!said("Sending HUP to current player")) {
                    return;
                }
            }
            go(machine, passed);
            return;
        }
        if (!takeFirst(machine, {child}, event)) {
            return;
        }
        if (event.value1 == machine.pendingPid && !pendingEnded.empty()) {
            if (ended(machine, machine.pendingSource, event)) {
                go(machine, pendingEnded);
            }
            return;
        }
        if (event.value1 == machine.currentPid && !currentEnded.empty()) {
            if (ended(machine, machine.currentSource, event)) {
                go(machine, currentEnded);
            }
            return;
        }
    }
}

void Run::awaitCurrentEnd(Machine machine, const std::string& next) {
    const bool logs = machine.state != "WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH";
    wait(machine, {child}, [&](Machine& waiter, const Event& event) {
        if (event.value1 != waiter.currentPid) {
            return logs && !said("Unknown child event. pid=" + std::to_string(event.value1));
        }
        if (ended(waiter, waiter.currentSource, event)) {
            go(waiter, next);
        }
        return true;
    });
}

void Run::shutdownCurrent(Machine machine, const std::string& passed, const std::string& failed) {
    if (!said("Sending HUP to current player")) {
        return;
    }
    Meeting met = Meeting::waiting;
    do {
        machine.hangUps.push_back(machine.currentPid);
        met = meet(machine, 1, {machine.currentPid});
        if (met == Meeting::passed) {
            go(machine, passed);
            return;
        }
        Event event;
        if (met == Meeting::waiting || !takeFirst(machine, {child}, event)) {
            return;
        }
        if (event.value1 == machine.currentPid) {
            if (ended(machine, machine.currentSource, event)) {
                go(machine, failed);
            }
            return;
        }
        if (!said("SIG_CHILD from PID " + std::to_string(event.value1))) {
            return;
        }
    } while (true);
}

void Run::launch(Machine machine, const std::string& next, bool alone) {
    if (alone) {
        machine.infoSource = machine.pendingSource;
    }
    machine.cause = window_.end; // a camera may be turned first, which takes time
    entry(machine, machine.pendingSource, [&](Machine knows, bool detected) {
        if (!detected) {
            if (said("launchPlayer called with NULL entry.") ||
                said("launchPlayer called with an invalid entry.")) {
                go(knows, "COULD_NOT_LAUNCH_PENDING_PLAYER");
            }
            return;
        }
        const std::size_t number = knows.launchedFor.size();
        knows.pendingPid = number < history_.launched.size() ? history_.launched[number] : unknownPid;
        knows.launchedFor.push_back(knows.pendingSource);
        if (moved(knows, knows.pendingSource)) {
            go(knows, next);
        }
    });
}

void Run::started(Machine machine) {
    machine.currentPid = machine.pendingPid;
    machine.currentSource = machine.pendingSource;
    machine.infoSource = machine.currentSource;
    machine.pendingPid = -1;
    playing(machine);
}

void Run::switchPlayer(Machine machine) {
    Event event;
    if (!takeFirst(machine, {child}, event)) {
        return;
    }
    // Kept: any child but the pending player counts as the current one.
    const bool pending = event.value1 == machine.pendingPid;
    if (ended(machine, pending ? machine.pendingSource : machine.currentSource, event)) {
        go(machine, pending ? "WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH" : "DONE_SWITCHED_PLAYER");
    }
}

void Run::crashedDuringPendingLaunch(Machine machine) {
    forgetCurrent(machine);
    if (said("Current player exited during pending launch")) {
        go(machine, "WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING");
    }
}

void Run::crashedDuringSwitch(Machine machine) {
    if (window_.end - window_.begin < blankSleep) {
        return;
    }
    Meeting met = Meeting::waiting;
    do {
        ++machine.blanks;
        machine.cause += blankSleep;
        met = meet(machine, 1, {machine.pendingPid});
        if (met == Meeting::passed) {
            go(machine, "DONE_SWITCHED_PLAYER");
            return;
        }
        Event event;
        if (met == Meeting::waiting || !takeFirst(machine, {child}, event)) {
            return;
        }
        if (event.value1 == machine.pendingPid) {
            if (ended(machine, machine.pendingSource, event)) {
                go(machine, "BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH");
            }
            return;
        }
    } while (true);
}

void Run::bothDown(Machine machine) {
    forgetCurrent(machine);
    machine.pendingPid = -1;
    go(machine, "COULD_NOT_LAUNCH_PENDING_PLAYER");
}

void Run::couldNotLaunch(Machine machine) {
    if (machine.currentPid == -1) {
        ++machine.blanks;
    }
    machine.pendingPid = -1;
    if (said("Failed to launch pending player") && invalidated(machine, machine.pendingSource)) {
        go(machine, machine.paused && machine.automatic ? "CURRENT_PLAYER_CRASHED_DURING_PAUSE"
                                                        : "SET_SLEEP_10_TIMER");
    }
}

void Run::crashedDuringPlaying(Machine machine) {
    ++machine.blanks;
    const bool told = invalidated(machine, machine.currentSource);
    forgetCurrent(machine);
    if (told) {
        go(machine, "SET_SLEEP_1_TIMER");
    }
}

void Run::requestFailed(Machine machine) {
    if (machine.currentPid != -1) {
        go(machine, "SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED");
    } else if (!machine.automatic) {
        go(machine, "SET_SLEEP_10_TIMER");
    } else {
        machine.sleepTimer = arm(machine, shortSleep, whole());
        go(machine, "AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED");
    }
}

void Run::stoppedAfterFailure(Machine machine) {
    ++machine.blanks;
    showNoConnection(machine);
    forgetCurrent(machine);
    go(machine, "REQUEST_ENCODER_FAILED");
}

void Run::setSleep(Machine machine, long milliseconds) {
    machine.sleepTimer = arm(machine, milliseconds, whole());
    go(machine, machine.automatic ? "AUTO_WAIT_ERROR_SLEEP_EVENT" : "MANUAL_WAIT_ERROR_SLEEP_EVENT");
}

void Run::crashedDuringPause(Machine machine) {
    ++machine.blanks;
    machine.sleepTimer = arm(machine, shortSleep, whole());
    const bool told = invalidated(machine, machine.currentSource);
    forgetCurrent(machine);
    if (told) {
        go(machine, "SLEEP_AFTER_CRASH_DURING_PAUSE");
    }
}

void Run::requestAfterPauseCrash(Machine machine) {
    if (machine.currentPid == -1) {
        machine.colour = 3;
        machine.pattern = 3;
    }
    machine.osd[0] = {};
    machine.cause = window_.end;
    entry(machine, machine.pendingSource, [this](Machine knows, bool detected) {
        if (said("Flushing DNS-cache") == detected) {
            return;
        }
        if (detected) {
            go(knows, "LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING");
            return;
        }
        knows.sleepTimer = arm(knows, shortSleep, whole());
        go(knows, "SLEEP_AFTER_CRASH_DURING_PAUSE");
    });
}

} // namespace walk
