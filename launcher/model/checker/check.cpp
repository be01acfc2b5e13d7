#include "launcher/model/checker/check.h"

#include "launcher/machine_test.h"
#include "launcher/model/checker/world.h"
#include "launcher/model/transitions.h"

#include <algorithm>

namespace checker {

Coverage coverage;

namespace {

constexpr int turnsBetweenWaits = 40;
constexpr int turnsToReach = 400;
constexpr std::int64_t alarmDisplayTime = 20'000'000;

// The machine at the beginning of a turn.
struct Before {
    State state = static_cast<State>(static_cast<int>(machine.currentState));
    int currentPID = process.currentPID;
    int pendingPID = process.pendingPID;
    int currentSource = machine.currentSource;
    int pendingSource = machine.pendingSource;
    int timer = fake::lastTimerId;
};

// The trigger that an event belongs to.
Trigger triggerOf(const Event& event, const Before& before) {
    switch (event.id) {
    case EID_BUTTON:
        return event.value2 == 0 ? SHORT_PRESS : LONG_PRESS;
    case EID_SELECT:
        return SELECT;
    case EID_ALARM:
        return ALARM;
    case EID_LOCK:
        return LOCK;
    case EID_RECONNECT:
        return RECONNECT;
    case EID_FLUSHCACHE:
        return FLUSH_REQUEST;
    case EID_TIMEOUT:
        return event.value1 == before.timer ? OWN_TIMER : OTHER_TIMER;
    case EID_CONNECTPROPERTYCHANGED:
        return fake::getParam(0, "Decoder.Connected") == "yes" ? TOLD_YES : TOLD_NO;
    case EID_CHILD:
        return event.value1 == before.currentPID   ? CURRENT_EXIT
               : event.value1 == before.pendingPID ? PENDING_EXIT
                                                   : OTHER_CHILD;
    }
    return BY_ITSELF;
}

bool inMiddleOfLaunch(int state) {
    return state >= WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING &&
           state <= BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH && state != COULD_NOT_LAUNCH_PENDING_PLAYER;
}

bool needsCurrentPlayer(int state) {
    return state == AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT || state == AUTO_PAUSE || state == AUTO_START_TIMER ||
           state == MANUAL_WAIT_FOR_NEW_SELECTION || state == SEND_ONLY_PTZ ||
           state == LAUNCH_PENDING_PLAYER || state == SHUTDOWN_CURRENT_PLAYER ||
           state == WAIT_DISCONNECT_SHUTDOWN || state == CURRENT_PLAYER_CRASHED_DURING_PLAYING;
}

bool needsNoPlayer(int state) {
    return state == DISCONNECTED || state == LOCKED || state == FLUSH_CACHE || state == CONNECT ||
           state == LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING || state == SLEEP_AFTER_CRASH_DURING_PAUSE ||
           state == AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED;
}

bool endsPause(int state) {
    return state == SELECT_SOURCE_ID || state == SHUTDOWN_CURRENT_PLAYER || state == PLAYING_STOPPED ||
           state == AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT;
}

bool belongsToPause(int state) {
    return state == CURRENT_PLAYER_CRASHED_DURING_PAUSE || state == SLEEP_AFTER_CRASH_DURING_PAUSE ||
           state == REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE;
}

// The timer that a state waits for; 0 for the others.
int timerOf(int state) {
    switch (state) {
    case AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT:
        return machine.sequenceTimerId;
    case AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED:
    case AUTO_WAIT_ERROR_SLEEP_EVENT:
    case SLEEP_AFTER_CRASH_DURING_PAUSE:
    case MANUAL_WAIT_ERROR_SLEEP_EVENT:
        return machine.sleepTimerId;
    case LOCKED:
        return machine.lockTimerId;
    }
    return 0;
}

class Run {
public:
    Run(const Steps& steps, const Invariant& extra) : world_(steps), extra_(extra), steps_(steps) {}

    std::string whole() {
        walk(0); // the start itself
        startMachine();
        while (wrong_.empty() && !world_.isKind())
            turn();
        reach(DISCONNECTED);
        fake::setParam(0, "Decoder.SequenceMode", "auto");
        fake::sources = {makeSource(0), makeSource(1)};
        fake::addSource(0, "input 0");
        fake::addSource(1, "input 1");
        world_.tellToConnect();
        reach(AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT);
        return report();
    }

private:
    // In a kind world the machine must reach `goal` and stay there for a turn.
    void reach(State goal) {
        for (int turns = 0; wrong_.empty(); ++turns) {
            const bool there = machine.currentState == goal;
            turn();
            if (there && machine.currentState == goal)
                return;
            if (turns > turnsToReach)
                note(std::string("is stuck on its way to ") + stateName(goal));
        }
    }

    // One turn and its checks.
    void turn() {
        const Before before;
        fake::calls.clear();
        fake::log.clear();
        fake::taken.clear();
        ++coverage.turns;
        try {
            runState();
            look(before);
        } catch (const fake::WouldBlock& wait) {
            note(world_.violation());
            note(wait.what());
        }
    }

    void look(const Before& before) {
        note(world_.violation());
        lookAtArrow(before);
        lookAtSelection(before);
        lookAtPlayers();
        lookAtStatus(before);
        lookAtExits(before);
        lookAtModes();
        lookAtTimers();
        lookAtAlarms();
        lookAtProgress();
        if (extra_)
            note(extra_());
    }

    void lookAtArrow(const Before& before) {
        const Trigger trigger = fake::taken.empty() ? BY_ITSELF : triggerOf(fake::taken.back(), before);
        const auto arrows = transitions();
        const auto find = [&](Trigger moved) {
            return std::find_if(arrows.begin(), arrows.end(), [&](const Transition& arrow) {
                return arrow.from == before.state && arrow.to == machine.currentState &&
                       arrow.trigger == moved;
            });
        };
        auto arrow = find(trigger);
        const bool putBack = arrow == arrows.end() && trigger != BY_ITSELF && before.state != CONNECT;
        if (arrow == arrows.end()) // the event was put back, or CONNECT did not need it
            arrow = find(BY_ITSELF);
        if (arrow == arrows.end())
            note(std::string("went from ") + stateName(before.state) + " to " +
                 stateName(machine.currentState) + " on: " + triggerName(trigger));
        else
            walk(static_cast<std::size_t>(arrow - arrows.begin()));
        if (putBack || (trigger == LOCK && machine.currentState == STOP_PLAYING))
            lookForQueued(fake::taken.back());
        if (before.state == SWITCH_PLAYER && trigger == OTHER_CHILD)
            mistaken_.push_back(before.currentPID);
    }

    static bool isSameInput(const Before& before) {
        return before.pendingSource != -1 &&
               getSourceKey(before.pendingSource) == getSourceKey(before.currentSource);
    }

    void lookAtSelection(const Before& before) {
        if (before.state != SELECT_SOURCE_ID || machine.currentState == FLUSH_CACHE_CONNECTED)
            return;
        const bool keeps = before.currentPID != -1 && isSameInput(before);
        if (keeps != (machine.currentState == SEND_ONLY_PTZ))
            note(keeps ? "starts a player for the input that shows" : "keeps the player of another input");
    }

    void lookForQueued(const Event& event) {
        const bool queued = std::any_of(fake::queue.begin(), fake::queue.end(), [&](const Event& other) {
            return other.id == event.id && other.value2 == event.value2;
        });
        if (!queued)
            note("has lost an event of identifier " + std::to_string(event.id));
    }

    void lookAtPlayers() {
        const int state = machine.currentState;
        if ((process.currentPID == -1) != (machine.currentSource == -1))
            note("has a current player without a current source, or the other way round");
        if (process.pendingPID != -1 && !inMiddleOfLaunch(state) && state != COULD_NOT_LAUNCH_PENDING_PLAYER)
            note("has a pending player outside of a launch or switch");
        if (process.pendingPID == -1 && inMiddleOfLaunch(state))
            note("has no pending player in the middle of a launch or switch");
        if (process.currentPID != -1 && process.currentPID == process.pendingPID)
            note("has one player as current and pending");
        if (needsCurrentPlayer(state) && process.currentPID == -1)
            note("has no current player");
        if (needsNoPlayer(state) && process.currentPID != -1)
            note("has a current player");
        int mine = 0;
        for (const Player& player : world_.players()) {
            if (std::find(mistaken_.begin(), mistaken_.end(), player.pid) != mistaken_.end())
                continue;
            ++mine;
            if (player.pid != process.currentPID && player.pid != process.pendingPID)
                note("has lost sight of player " + std::to_string(player.pid));
        }
        if (mine > 2)
            note("has more than two players alive");
    }

    void lookAtStatus(const Before& before) {
        if (before.state == LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING)
            launched_ = before.pendingSource;
        else if (machine.currentSource != -1 || wroteStatus(-1))
            launched_ = -1;
        const std::string shown = fake::getParam(1, "Decoder.Info.CurrentSource");
        const int expected = machine.currentSource != -1 ? machine.currentSource : launched_;
        if (shown != std::to_string(expected))
            note("shows " + shown + " in its status instead of " + std::to_string(expected));
    }

    static bool wroteStatus(int source) {
        const std::string call = "param(1) Decoder.Info.CurrentSource=" + std::to_string(source);
        return std::find(fake::calls.begin(), fake::calls.end(), call) != fake::calls.end();
    }

    void lookAtExits(const Before& before) {
        for (const Event& event : fake::taken) {
            if (event.id != EID_CHILD)
                continue;
            const bool current = event.value1 == before.currentPID;
            const bool pending = event.value1 == before.pendingPID;
            if (!current && !pending)
                continue;
            const std::string call =
                "handleError(" + std::to_string(current ? before.currentSource : before.pendingSource) + "," +
                std::to_string(event.value1) + "," + std::to_string(event.value2) + ")";
            if (std::count(fake::calls.begin(), fake::calls.end(), call) != 1)
                note("did not classify an exit: " + call);
        }
    }

    void lookAtModes() {
        const std::string name = stateName(machine.currentState);
        if ((name.starts_with("AUTO_") && process.mode != MODE_AUTO) ||
            (name.starts_with("MANUAL_") && process.mode != MODE_MANUAL))
            note("is in the wrong mode");
        if (machine.sequencePaused && process.mode != MODE_AUTO)
            note("is paused in manual mode");
        if (machine.sequencePaused && endsPause(machine.currentState))
            note("is still paused");
        if (!machine.sequencePaused && belongsToPause(machine.currentState))
            note("is not paused any more");
    }

    void lookAtTimers() {
        const int timer = timerOf(machine.currentState);
        if (timer != 0 && timer != fake::lastTimerId)
            note("waits for a timer that it did not arm");
    }

    void lookAtAlarms() {
        const bool shown = std::any_of(fake::calls.begin(), fake::calls.end(), [](const std::string& call) {
            return call.starts_with("osdPrintf(1,20) ALARM:");
        });
        if (!shown)
            return;
        // An alarm that connects a disconnected decoder does not replace a picture.
        if (alarmShown_ != 0 && fake::now - alarmShown_ < alarmDisplayTime && machine.currentSource != -1)
            note("replaced an alarm before its display time was over");
        alarmShown_ = fake::now;
    }

    void lookAtProgress() {
        const bool waited = std::any_of(fake::calls.begin(), fake::calls.end(), [](const std::string& call) {
            return call.starts_with("getNextEvent(");
        });
        turnsSinceWait_ = waited ? 0 : turnsSinceWait_ + 1;
        if (turnsSinceWait_ > turnsBetweenWaits)
            note("takes many turns without waiting");
    }

    static void walk(std::size_t row) {
        coverage.walked.resize(transitions().size());
        ++coverage.walked[row];
    }

    void note(const std::string& what) {
        if (wrong_.empty() && !what.empty())
            wrong_ = what;
    }

    std::string report() const {
        ++coverage.runs;
        coverage.steps += static_cast<long>(world_.stepsTaken());
        if (wrong_.empty())
            return "";
        const std::size_t taken = world_.stepsTaken();
        return wrong_ + " (in " + stateName(machine.currentState) + ", after step " + std::to_string(taken) +
               (taken == 0 ? "" : ", " + text(steps_[taken - 1])) + ")";
    }

    World world_;
    const Invariant& extra_;
    const Steps& steps_;
    std::string wrong_;
    std::vector<int> mistaken_; // players that the machine considered gone while they were leaving
    int launched_ = -1;         // source that a single launch has named in the status
    std::int64_t alarmShown_ = 0;
    int turnsSinceWait_ = 0;
};

} // namespace

std::string check(const Steps& steps, const Invariant& extra) {
    return Run(steps, extra).whole();
}

} // namespace checker
