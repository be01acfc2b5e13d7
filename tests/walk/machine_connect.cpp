// The model's handlers: start, connecting, disconnected, lock, requests, stopping.
#include "tests/walk/machine.h"

#include <algorithm>

namespace walk {

namespace {

constexpr Time noSourceSleep = 2 * second;
constexpr long lockTime = 10000;

} // namespace

void Run::start(Machine machine) {
    clear(machine, [&](Machine emptied) {
        const bool connects = history_.settings[0].autoConnect;
        setConnected(emptied, connects ? "yes" : "no");
        go(emptied, connects ? "CONNECT" : "DISCONNECTED");
    });
}

void Run::connect(Machine machine) {
    for (const int version : window_.versions) {
        connectWith(machine, version);
    }
}

void Run::connectWith(Machine machine, int version) {
    const Settings& settings = history_.settings[static_cast<std::size_t>(version)];
    const bool was = machine.automatic;
    machine.automatic = settings.mode == "auto" || (settings.mode != "manual" && was);
    if (was != machine.automatic && !said(was ? "Mode transition: 0 -> 1" : "Mode transition: 1 -> 0")) {
        return;
    }
    const bool legal = settings.mode == "auto" || settings.mode == "manual";
    if (!legal && !said("Illegal mode '" + settings.mode + "' in Decoder.SequenceMode!")) {
        return;
    }
    if (!said("Found " + std::to_string(settings.sources.size()) + " sources")) {
        return;
    }
    machine.list = version;
    machine.paused = false;
    machine.detectTimeout = settings.detectTimeout;
    machine.sequence.clear();
    for (int i = 0; settings.source(i) != nullptr; ++i) {
        const Source& source = *settings.source(i);
        if ((machine.automatic ? source.inAuto : source.inManual) && !source.address.empty()) {
            machine.sequence.push_back(i);
        }
    }
    machine.pendingSource = -1;
    forgetCurrent(machine);
    machine.pendingPid = -1;
    machine.infoConnected = "yes";
    machine.sequenceStart = {-1, -1};
    const auto unselected = [this](Machine other) {
        if (other.sequence.empty()) {
            connectNoSource(other);
            return;
        }
        other.sequencePos = 0;
        other.pendingSource = other.sequence[0];
        go(other, "REQUEST_ENCODER_TYPE");
    };
    // A selection of -1 names no source: the first one of the sequence is chosen, as without a selection.
    const auto selected = [&](Machine taker, const Event& event) {
        taker.pendingSource = event.value1;
        if (event.value1 == -1) {
            unselected(taker);
        } else {
            go(taker, "REQUEST_ENCODER_TYPE");
        }
    };
    if (machine.automatic) {
        peek(machine, {select}, selected, unselected);
        return;
    }
    peek(
        machine, {alarm},
        [&](Machine taker, const Event& event) {
            taker.pendingSource = event.value1;
            const auto text = history_.alarmTexts.find(event.value2);
            taker.alarmText = text == history_.alarmTexts.end() ? "" : text->second;
            taker.lastAlarm = {std::min(event.time, window_.begin), window_.end};
            showAlarm(taker, event.value1);
            peek(taker, {select}, selected,
                 [this](const Machine& alone) { go(alone, "REQUEST_ENCODER_TYPE"); });
        },
        [&](const Machine& other) { peek(other, {select}, selected, unselected); });
}

void Run::connectNoSource(Machine machine) {
    if (!said("No sources available in this mode.") || window_.end - window_.begin < noSourceSleep) {
        return;
    }
    machine.cause += noSourceSleep;
    setConnected(machine, "no");
    clear(machine, [this](const Machine& emptied) { go(emptied, "DISCONNECTED"); });
}

void Run::disconnected(Machine machine) {
    machine = resting(std::move(machine));
    const auto lockIt = [this](Machine locks, const Event& event) {
        locks.lockTimer = arm(locks, lockTime, {std::max(window_.begin, event.time), window_.end});
        go(locks, "LOCKED");
    };
    peek(machine, {lock}, lockIt, [&](Machine other) {
        Event event;
        if (!takeFirst(other, {select, button, property, alarm, flush, lock}, event)) {
            return;
        }
        if (event.id == lock) {
            lockIt(other, event);
        } else if (!disconnectedEvent(other, event)) {
            disconnected(other); // it runs again, with all its effects
        }
    });
}

// True when no later event can matter.
bool Run::disconnectedEvent(Machine& machine, const Event& event) {
    if (event.id == flush) {
        go(machine, "FLUSH_CACHE");
        return true;
    }
    const auto connects = [&](bool pushes) {
        Machine connecting = machine;
        if (event.id != property) {
            setConnected(connecting, "yes");
        }
        clear(connecting, [&](Machine emptied) {
            if (!pushes || pushBack(emptied, event)) {
                go(emptied, "CONNECT");
            }
        });
    };
    if (event.id == property) {
        const std::set<std::string> possible = possibleConnected(machine);
        if (possible.contains("yes")) {
            connects(false);
        }
        return possible == std::set<std::string>{"yes"};
    }
    if (event.id == button) {
        if (event.value2 == 0) {
            connects(false);
        }
        return event.value2 == 0;
    }
    if (event.id == alarm) {
        const auto manual = [&](int version) {
            return history_.settings[static_cast<std::size_t>(version)].mode == "manual";
        };
        if (std::ranges::any_of(window_.versions, manual)) {
            connects(true);
        }
        return std::ranges::all_of(window_.versions, manual);
    }
    connects(true);
    return true;
}

void Run::locked(Machine machine) {
    wait(machine, {timeout, reconnect, lock}, [this](Machine& waiter, const Event& event) {
        if (event.id == lock) {
            const Time low = std::max(window_.begin, event.time);
            waiter.lockTimer = arm(waiter, lockTime, {low, std::min(window_.end, low + lateness)});
            return false;
        }
        if (event.id == timeout && event.value1 != waiter.lockTimer) {
            return false;
        }
        if (pushBack(waiter, {.id = property, .time = event.time})) {
            go(waiter, "FLUSH_CACHE");
        }
        return true;
    });
}

void Run::flushCache(Machine machine) {
    machine.cache.clear();
    go(machine, machine.state == "FLUSH_CACHE" ? "DISCONNECTED" : "REQUEST_ENCODER_TYPE");
}

void Run::requestEncoder(Machine machine) {
    if (machine.currentPid == -1) {
        machine.colour = 3;
        machine.pattern = 3;
    }
    machine.osd[0] = {};
    machine.cause = window_.end; // a detection takes time
    entry(machine, machine.pendingSource, [this](const Machine& knows, bool detected) {
        peek(
            knows, {flush, button},
            [&](Machine taker, const Event& event) {
                if (event.id == flush) {
                    go(taker, "FLUSH_CACHE_CONNECTED");
                } else if (taker.automatic && taker.currentPid != -1 && event.value2 == 0) {
                    pauseBefore(taker);
                } else if (pushBack(taker, event)) {
                    requestDone(taker, detected);
                }
            },
            [&](const Machine& other) { requestDone(other, detected); });
    });
}

void Run::requestDone(Machine machine, bool detected) {
    if (said("Flushing DNS-cache") == detected) {
        return;
    }
    if (!detected) {
        go(machine, "REQUEST_ENCODER_FAILED");
    } else {
        go(machine, machine.currentPid == -1 ? "LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING"
                                             : "LAUNCH_PENDING_PLAYER");
    }
}

void Run::pauseBefore(Machine machine) {
    const int size = static_cast<int>(machine.sequence.size());
    const auto place = std::ranges::find(machine.sequence, machine.pendingSource);
    if (place != machine.sequence.end()) {
        const int position = static_cast<int>(place - machine.sequence.begin());
        machine.sequencePos = position == 0 ? size - 1 : position - 1;
    }
    if (machine.sequencePos >= 0 && machine.sequencePos < size) {
        machine.pendingSource = machine.sequence[static_cast<std::size_t>(machine.sequencePos)];
    }
    go(machine, "AUTO_PAUSE");
}

void Run::selectSource(Machine machine) {
    if (machine.automatic) {
        machine.sequenceStart = {-1, -1};
    }
    peek(
        machine, {flush}, [this](const Machine& taker, const Event&) { go(taker, "FLUSH_CACHE_CONNECTED"); },
        [this](const Machine& other) {
            if (other.currentPid == -1) {
                go(other, "REQUEST_ENCODER_TYPE");
                return;
            }
            for (const int version : window_.versions) {
                const Settings& settings = history_.settings[static_cast<std::size_t>(version)];
                const bool same = settings.key(other.pendingSource) == settings.key(other.currentSource) &&
                                  other.pendingSource != -1;
                if (!same) {
                    go(other, "REQUEST_ENCODER_TYPE");
                    continue;
                }
                entry(other, other.pendingSource, [this](Machine knows, bool) {
                    knows.cause = window_.end;
                    go(knows, "SEND_ONLY_PTZ");
                });
            }
        });
}

void Run::sendOnlyPtz(Machine machine) {
    entry(machine, machine.pendingSource, [this](Machine knows, bool detected) {
        if (detected && !moved(knows, knows.pendingSource)) {
            return;
        }
        knows.cause = window_.end;
        knows.currentSource = knows.pendingSource;
        knows.infoSource = knows.pendingSource;
        playing(knows);
    });
}

void Run::stopPlaying(Machine machine) {
    machine.osd[1] = {};
    machine.paused = false;
    go(machine, machine.currentPid == -1 ? "PLAYING_STOPPED" : "SHUTDOWN_CURRENT_PLAYER");
}

void Run::playingStopped(Machine machine) {
    forgetCurrent(machine);
    machine.pendingPid = -1;
    machine.pendingSource = -1;
    machine.sequencePos = -1;
    go(machine, "DISCONNECTED");
}

} // namespace walk
