// The model's handlers: the sequence, the pause, manual mode, error sleeps; and which handler a state has.
#include "tests/walk/machine.h"

#include <algorithm>

namespace walk {

namespace {

constexpr long sleep10 = 10000;
constexpr long sleep1 = 4000; // kept, although the name says 1

} // namespace

Machine Run::resting(Machine machine) const {
    if (machine.state == "DISCONNECTED") {
        const bool shows = history_.settings[0].showsMessage;
        machine.osd[0] = {shows ? "Disconnected. My IP address: 127.0.0.1" : "", 0, {}};
        machine.osd[1] = {};
        machine.osd[2] = {};
        machine.paused = false;
        machine.infoConnected = "no";
        machine.colour = 2;
        machine.pattern = 2;
        ++machine.blanks;
    } else if (machine.state == "AUTO_PAUSE") {
        machine.osd[1] = {"Sequence paused", 0, {}};
        machine.paused = true;
    } else if (machine.state == "MANUAL_WAIT_ERROR_SLEEP_EVENT") {
        showNoConnection(machine);
    } else if (machine.state == "SLEEP_AFTER_CRASH_DURING_PAUSE" ||
               machine.state == "AUTO_WAIT_ERROR_SLEEP_EVENT" ||
               machine.state == "AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED") {
        if (machine.currentPid == -1) {
            showNoConnection(machine);
        }
    }
    return machine;
}

void Run::autoStartTimer(Machine machine) {
    if (machine.paused) {
        go(machine, "AUTO_PAUSE");
        return;
    }
    if (machine.sequenceStart.low == -1) {
        machine.sequenceStart = whole();
    }
    const Source* source = kept(machine, machine.pendingSource);
    machine.sequenceTimer = arm(machine, source == nullptr ? 0 : source->displayTime * 1000L, whole());
    go(machine, "AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT");
}

void Run::autoWait(Machine machine) {
    wait(machine, {button, select, property, lock, timeout, child},
         [this](Machine& waiter, const Event& event) {
             if (stops(waiter, event)) {
                 return true;
             }
             if (event.id == button) {
                 go(waiter, "AUTO_PAUSE");
                 return true;
             }
             if (event.id == select) {
                 waiter.pendingSource = event.value1;
                 go(waiter, "AUTO_DIRECT_SOURCE_SELECT");
                 return true;
             }
             if (event.id == timeout) {
                 if (event.value1 == waiter.sequenceTimer) {
                     go(waiter, "AUTO_GOTO_NEXT_SOURCE");
                     return true;
                 }
                 return !said("Unknown timer ID, probably from previous crashed/interrupted PID. ID=" +
                              std::to_string(event.value1));
             }
             if (event.id != child) {
                 return false;
             }
             if (event.value1 != waiter.currentPid) {
                 return !said("Unknown child event. pid=" + std::to_string(event.value1));
             }
             if (ended(waiter, waiter.currentSource, event)) {
                 go(waiter, "CURRENT_PLAYER_CRASHED_DURING_PLAYING");
             }
             return true;
         });
}

void Run::autoPause(Machine machine) {
    machine = resting(std::move(machine));
    wait(machine, {button, select, child, property, lock}, [this](Machine& waiter, const Event& event) {
        Machine resumed = waiter;
        resumed.paused = false;
        if (event.id == button || event.id == select) {
            resumed.osd[1] = {};
        }
        if (stops(resumed, event)) {
            return true;
        }
        if (event.id == button) {
            go(resumed, "AUTO_GOTO_NEXT_SOURCE");
            return true;
        }
        if (event.id == select) {
            resumed.pendingSource = event.value1;
            go(resumed, "AUTO_DIRECT_SOURCE_SELECT");
            return true;
        }
        if (event.id != child) {
            return false;
        }
        if (event.value1 != waiter.currentPid) {
            return !said("Unknown child event. pid=" + std::to_string(event.value1));
        }
        if (ended(waiter, waiter.currentSource, event)) {
            go(waiter, "CURRENT_PLAYER_CRASHED_DURING_PAUSE");
        }
        return true;
    });
}

void Run::directSelect(Machine machine) {
    if (machine.automatic) {
        machine.osd[1] = {};
        machine.paused = false;
    }
    go(machine, "SELECT_SOURCE_ID");
}

void Run::nextSource(Machine machine) {
    if (machine.state == "AUTO_GOTO_NEXT_SOURCE") {
        machine.osd[1] = {};
        machine.paused = false;
    }
    machine.sequencePos = 0;
    if (machine.sequence.empty()) {
        setConnected(machine, "no");
        if (said("No sources available in this mode but a source is playing because of user select.")) {
            go(machine, "STOP_PLAYING");
        }
        return;
    }
    const auto next = std::ranges::upper_bound(machine.sequence, machine.pendingSource);
    if (next != machine.sequence.end()) {
        machine.sequencePos = static_cast<int>(next - machine.sequence.begin());
    }
    machine.pendingSource = machine.sequence[static_cast<std::size_t>(machine.sequencePos)];
    go(machine, "SELECT_SOURCE_ID");
}

void Run::autoSleep(Machine machine, bool pressSkips, const std::string& next) {
    machine = resting(std::move(machine));
    wait(machine, {button, select, timeout, property, lock}, [&](Machine& waiter, const Event& event) {
        if (stops(waiter, event)) {
            return true;
        }
        if (event.id == select) {
            waiter.pendingSource = event.value1;
            go(waiter, "AUTO_DIRECT_SOURCE_SELECT");
            return true;
        }
        if (event.id == button && pressSkips) {
            go(waiter, "AUTO_GOTO_NEXT_SOURCE");
            return true;
        }
        if (event.id == timeout && event.value1 == waiter.sleepTimer) {
            go(waiter, next);
            return true;
        }
        return false;
    });
}

void Run::timeLeft(Machine machine) {
    const Source* source = kept(machine, machine.pendingSource);
    const Time slot = source == nullptr ? 0 : source->displayTime * second;
    // Kept: a sequence that has not started counts from -1 on the machine's own clock.
    const Span start = machine.sequenceStart.low == -1 ? Span{history_.bootTime - 1, history_.bootTime - 1}
                                                       : machine.sequenceStart;
    const Time most = slot - (window_.begin - start.high);
    const Time least = slot - (window_.end - start.low);
    const Time needed = machine.detectTimeout * second;
    if (most >= needed) {
        go(machine, "REQUEST_ENCODER_TYPE");
    }
    if (least < needed) {
        go(machine, "AUTO_GOTO_NEXT_SOURCE");
    }
}

// `certain`: the alarm certainly passed. An alarm is refused within the display time of the last one.
void Run::tryAlarm(Machine& machine, const Event& event, bool& certain) {
    const Time first = std::max(window_.begin, event.time);
    certain = true;
    bool possible = false;
    for (const int version : window_.versions) {
        const Time held = history_.settings[static_cast<std::size_t>(version)].alarmTime * second;
        certain = certain && first - machine.lastAlarm.high >= held;
        possible = possible || window_.end - machine.lastAlarm.low >= held;
    }
    if (!possible) {
        return;
    }
    Machine passes = machine;
    passes.lastAlarm = {first, window_.end};
    passes.pendingSource = event.value1;
    const auto text = history_.alarmTexts.find(event.value2);
    passes.alarmText = text == history_.alarmTexts.end() ? "" : text->second;
    go(passes, "MANUAL_ALARM");
}

void Run::manualWait(Machine machine) {
    wait(machine, {alarm, button, select, child, property, lock},
         [this](Machine& waiter, const Event& event) {
             bool certain = false;
             if (stops(waiter, event)) {
                 return true;
             }
             switch (event.id) {
             case alarm:
                 tryAlarm(waiter, event, certain);
                 return certain;
             case button:
                 go(waiter, "MANUAL_GOTO_NEXT_SOURCE");
                 return true;
             case select:
                 waiter.pendingSource = event.value1;
                 go(waiter, "MANUAL_DIRECT_SOURCE_SELECT");
                 return true;
             case child:
                 if (event.value1 != waiter.currentPid) {
                     return !said("Unknown child event. pid=" + std::to_string(event.value1));
                 }
                 if (ended(waiter, waiter.currentSource, event)) {
                     go(waiter, "CURRENT_PLAYER_CRASHED_DURING_PLAYING");
                 }
                 return true;
             default:
                 return false;
             }
         });
}

void Run::manualAlarm(Machine machine) {
    showAlarm(machine, machine.pendingSource);
    go(machine, "SELECT_SOURCE_ID");
}

void Run::manualSleep(Machine machine) {
    machine = resting(std::move(machine));
    wait(machine, {button, select, alarm, timeout, property, lock},
         [this](Machine& waiter, const Event& event) {
             bool certain = false;
             if (stops(waiter, event)) {
                 return true;
             }
             switch (event.id) {
             case alarm:
                 tryAlarm(waiter, event, certain);
                 return certain;
             case button:
                 go(waiter, "MANUAL_GOTO_NEXT_SOURCE");
                 return true;
             case select:
                 waiter.pendingSource = event.value1;
                 go(waiter, "MANUAL_DIRECT_SOURCE_SELECT");
                 return true;
             case timeout:
                 if (event.value1 == waiter.sleepTimer) {
                     go(waiter, "REQUEST_ENCODER_TYPE");
                 }
                 return event.value1 == waiter.sleepTimer;
             default:
                 return false;
             }
         });
}

std::vector<Machine> Run::outcomes(Machine machine) {
    using Handler = std::function<void(Run&, Machine)>;
    const auto by = [](void (Run::*handler)(Machine)) {
        return Handler([handler](Run& run, Machine m) { (run.*handler)(std::move(m)); });
    };
    const auto meets = [](int barrierId, bool current, bool pending, const char* passed,
                          const char* pendingEnded, const char* currentEnded) {
        return Handler([=](Run& run, Machine m) {
            run.meetOr(std::move(m), barrierId, current, pending, passed, pendingEnded, currentEnded);
        });
    };
    static const std::map<std::string, Handler> handlers{
        {"NULL", [](Run& run, const Machine& m) { run.go(m, "START_UL"); }},
        {"START_UL", by(&Run::start)},
        {"CONNECT", by(&Run::connect)},
        {"DISCONNECTED", by(&Run::disconnected)},
        {"FLUSH_CACHE", by(&Run::flushCache)},
        {"LOCKED", by(&Run::locked)},
        {"REQUEST_ENCODER_TYPE", by(&Run::requestEncoder)},
        {"CURRENT_PLAYER_CRASHED_DURING_PLAYING", by(&Run::crashedDuringPlaying)},
        {"SEND_ONLY_PTZ", by(&Run::sendOnlyPtz)},
        {"SELECT_SOURCE_ID", by(&Run::selectSource)},
        {"REQUEST_ENCODER_FAILED", by(&Run::requestFailed)},
        {"SET_SLEEP_10_TIMER", [](Run& run, const Machine& m) { run.setSleep(m, sleep10); }},
        {"SET_SLEEP_1_TIMER", [](Run& run, const Machine& m) { run.setSleep(m, sleep1); }},
        {"SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED",
         [](Run& run, const Machine& m) {
             run.shutdownCurrent(m, "WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED",
                                 "CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED");
         }},
        {"WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED",
         [](Run& run, const Machine& m) {
             run.awaitCurrentEnd(m, "CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED");
         }},
        {"CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED", by(&Run::stoppedAfterFailure)},
        {"STOP_PLAYING", by(&Run::stopPlaying)},
        {"SHUTDOWN_CURRENT_PLAYER",
         [](Run& run, const Machine& m) {
             run.shutdownCurrent(m, "WAIT_DISCONNECT_SHUTDOWN", "PLAYING_STOPPED");
         }},
        {"WAIT_DISCONNECT_SHUTDOWN",
         [](Run& run, const Machine& m) { run.awaitCurrentEnd(m, "PLAYING_STOPPED"); }},
        {"PLAYING_STOPPED", by(&Run::playingStopped)},
        {"FLUSH_CACHE_CONNECTED", by(&Run::flushCache)},
        {"LAUNCH_PENDING_PLAYER",
         [](Run& run, const Machine& m) { run.launch(m, "WAIT_LAUNCHED_PENDING_PLAYER", false); }},
        {"LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING",
         [](Run& run, const Machine& m) {
             run.launch(m, "WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING", true);
         }},
        {"WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING",
         meets(0, false, true, "SINGLE_PLAYER_LAUNCHED", "COULD_NOT_LAUNCH_PENDING_PLAYER", "")},
        {"SINGLE_PLAYER_LAUNCHED",
         meets(1, false, true, "SINGLE_PLAYER_STARTED", "COULD_NOT_LAUNCH_PENDING_PLAYER", "")},
        {"SINGLE_PLAYER_STARTED", by(&Run::started)},
        {"WAIT_LAUNCHED_PENDING_PLAYER",
         meets(0, false, true, "WAIT_SHUTDOWN_CURRENT_PLAYER", "COULD_NOT_LAUNCH_PENDING_PLAYER",
               "CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH")},
        {"COULD_NOT_LAUNCH_PENDING_PLAYER", by(&Run::couldNotLaunch)},
        {"WAIT_SHUTDOWN_CURRENT_PLAYER",
         meets(1, true, true, "SWITCH_PLAYER", "PENDING_PLAYER_CRASHED_STOPPING_CURRENT",
               "CURRENT_PLAYER_CRASHED_DURING_SWITCH")},
        {"SWITCH_PLAYER", by(&Run::switchPlayer)},
        {"DONE_SWITCHED_PLAYER", by(&Run::started)},
        {"CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH", by(&Run::crashedDuringPendingLaunch)},
        {"CURRENT_PLAYER_CRASHED_DURING_SWITCH", by(&Run::crashedDuringSwitch)},
        {"PENDING_PLAYER_CRASHED_STOPPING_CURRENT",
         meets(1, true, false, "WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH", "",
               "BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH")},
        {"WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH",
         [](Run& run, const Machine& m) { run.awaitCurrentEnd(m, "BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH"); }},
        {"BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH", by(&Run::bothDown)},
        {"AUTO_START_TIMER", by(&Run::autoStartTimer)},
        {"AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT", by(&Run::autoWait)},
        {"AUTO_DIRECT_SOURCE_SELECT", by(&Run::directSelect)},
        {"AUTO_GOTO_NEXT_SOURCE", by(&Run::nextSource)},
        {"AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED",
         [](Run& run, const Machine& m) { run.autoSleep(m, true, "AUTO_GOTO_NEXT_SOURCE"); }},
        {"AUTO_WAIT_ERROR_SLEEP_EVENT",
         [](Run& run, const Machine& m) { run.autoSleep(m, false, "AUTO_CHECK_FOR_TIME_LEFT_RECONNECT"); }},
        {"AUTO_CHECK_FOR_TIME_LEFT_RECONNECT", by(&Run::timeLeft)},
        {"AUTO_PAUSE", by(&Run::autoPause)},
        {"CURRENT_PLAYER_CRASHED_DURING_PAUSE", by(&Run::crashedDuringPause)},
        {"SLEEP_AFTER_CRASH_DURING_PAUSE",
         [](Run& run, const Machine& m) {
             run.autoSleep(m, true, "REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE");
         }},
        {"REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE", by(&Run::requestAfterPauseCrash)},
        {"MANUAL_WAIT_FOR_NEW_SELECTION", by(&Run::manualWait)},
        {"MANUAL_ALARM", by(&Run::manualAlarm)},
        {"MANUAL_DIRECT_SOURCE_SELECT", by(&Run::directSelect)},
        {"MANUAL_GOTO_NEXT_SOURCE", by(&Run::nextSource)},
        {"MANUAL_WAIT_ERROR_SLEEP_EVENT", by(&Run::manualSleep)},
    };
    results_.clear();
    machine.cause = window_.begin;
    machine.wroteConnected = false;
    machine.queue.insert(machine.queue.end(), window_.events.begin(), window_.events.end());
    const auto handler = handlers.find(machine.state);
    if (handler != handlers.end()) {
        handler->second(*this, std::move(machine));
    }
    return results_;
}

} // namespace walk
