// What the model's handlers share: the queue, barriers, detections, texts.
#include "tests/walk/machine.h"

#include <algorithm>
#include <limits>

namespace walk {

void Run::go(Machine machine, const std::string& state) {
    // An event that the machine put back, but not this one.
    if (std::ranges::any_of(machine.queue, &Event::pushed)) {
        return;
    }
    for (Event& event : machine.queue) {
        event.order = -1;
    }
    machine.known = -1;
    machine.state = state;
    if (std::ranges::find(results_, machine) == results_.end()) {
        results_.push_back(std::move(machine));
    }
}

bool Run::said(const std::string& text) const {
    return std::ranges::find(window_.texts, text) != window_.texts.end();
}

int Run::find(const Machine& machine, const Ids& ids) const {
    const auto found = std::ranges::find_if(machine.queue, [&](const Event& event) {
        return !event.pushed && std::ranges::find(ids, event.id) != ids.end();
    });
    return found == machine.queue.end() ? -1 : static_cast<int>(found - machine.queue.begin());
}

Event Run::take(Machine& machine, int place) const {
    const Event event = machine.queue[static_cast<std::size_t>(place)];
    machine.queue.erase(machine.queue.begin() + place);
    machine.known = std::max(machine.known, event.order);
    machine.cause = std::max(machine.cause, event.time);
    return event;
}

bool Run::takeFirst(Machine& machine, const Ids& ids, Event& event) const {
    const int place = find(machine, ids);
    if (place >= 0) {
        event = take(machine, place);
    }
    return place >= 0;
}

// The machine looked once, at an unknown moment of the window.
void Run::peek(const Machine& machine, const Ids& ids, const Seen& seen, const Next& unseen) const {
    const int place = find(machine, ids);
    if (place >= 0) {
        Machine taker = machine;
        const Event event = take(taker, place);
        seen(taker, event);
        if (event.order <= machine.known) {
            return;
        }
    }
    unseen(machine);
}

// The machine took one event after the other, and slept while there was none: the moment does not matter.
void Run::wait(Machine machine, const Ids& ids, const React& react) const {
    Event event;
    while (takeFirst(machine, ids, event)) {
        if (react(machine, event)) {
            return;
        }
    }
}

bool Run::pushBack(Machine& machine, Event event) const {
    const auto place = std::ranges::find_if(
        machine.queue, [&](const Event& other) { return other.pushed && other.id == event.id; });
    if (place == machine.queue.end()) {
        return window_.dropped.contains(event.id);
    }
    event.order = place->order;
    *place = event;
    return true;
}

// The machine emptied the queue at an unknown moment, after what it had seen and before it put anything back.
void Run::clear(const Machine& machine, const Next& next) const {
    int last = machine.known;
    int limit = std::numeric_limits<int>::max();
    for (const Event& event : machine.queue) {
        if (event.pushed) {
            limit = std::min(limit, event.order);
        }
        last = std::max(last, event.order);
    }
    for (int cut = machine.known; cut <= last && cut < limit; ++cut) {
        Machine emptied = machine;
        std::erase_if(emptied.queue, [&](const Event& event) { return !event.pushed && event.order <= cut; });
        next(emptied);
    }
}

// The walk may have written at the same time.
void Run::setConnected(Machine& machine, const std::string& value) const {
    machine.connected = window_.connects;
    machine.connected.insert(value);
    machine.wroteConnected = true;
}

std::set<std::string> Run::possibleConnected(const Machine& machine) const {
    std::set<std::string> possible = machine.connected;
    possible.insert(window_.connects.begin(), window_.connects.end());
    return possible;
}

const Source* Run::kept(const Machine& machine, int index) const {
    return history_.settings[static_cast<std::size_t>(machine.list)].source(index);
}

int Run::arm(Machine& machine, long milliseconds, Span when) const {
    constexpr int firstTimer = 65536;
    const int id = firstTimer + static_cast<int>(machine.timers.size());
    machine.timers.push_back({id, milliseconds, when});
    return id;
}

void Run::entry(const Machine& machine, int index, const Detected& next) const {
    for (const int version : window_.versions) {
        const Settings& settings = history_.settings[static_cast<std::size_t>(version)];
        const Source* source = settings.source(index);
        if (source == nullptr) {
            next(machine, false);
            continue;
        }
        if (machine.cache.contains(source->key())) {
            next(machine, true);
            continue;
        }
        const bool video = window_.videos.contains(source->address);
        // Under load an answer may come after the timeout.
        const bool slow = window_.end - window_.begin >= settings.detectTimeout * second;
        if (video) {
            Machine knows = machine;
            knows.cache.insert(source->key());
            next(knows, true);
        }
        if (!video || window_.interrupted || slow) {
            next(machine, false);
        }
    }
}

bool Run::moved(const Machine& machine, int index) const {
    return std::ranges::any_of(window_.versions, [&](int version) {
        const Source* source = history_.settings[static_cast<std::size_t>(version)].source(index);
        return source == nullptr || source->preset.empty() || !machine.cache.contains(source->key()) ||
               window_.moves.contains(source->address + ' ' + source->preset);
    });
}

// The lines that classify the exit of a player.
bool Run::ended(Machine& machine, int source, const Event& event) const {
    machine.cause = std::max(machine.cause, event.time);
    if (source == -1) {
        return said("handleError called with -1 sourceID");
    }
    const int status = event.value2;
    if ((status & 0x7f) != 0) {
        return said("Player crashed due to an uncaught signal. signo=" + std::to_string(status & 0x7f));
    }
    const int code = (status >> 8) & 0xff;
    if (!said("Player existed with code: " + std::to_string(code))) {
        return false;
    }
    switch (code) {
    case 0:
    case 40:
    case 50:
        return true;
    case 10:
        return said("resetting and forcing genlock due to RUA DMA LOCK");
    case 11:
        return said("Player failed to connect.");
    case 14:
    case 23:
        return said("Player exited due to end of stream.");
    default:
        return said("Player exited during playing. errorcode: " + std::to_string(code));
    }
}

bool Run::invalidated(Machine& machine, int source) const {
    for (const int version : window_.versions) {
        machine.cache.erase(history_.settings[static_cast<std::size_t>(version)].key(source));
    }
    return said("Invalidating source cache entry " + std::to_string(source));
}

Run::Meeting Run::meet(Machine& machine, int barrierId, const std::set<int>& pids) const {
    std::set<int> arrived;
    Event event;
    while (arrived.size() < pids.size()) {
        if (!takeFirst(machine, {child, barrier}, event)) {
            return Meeting::waiting;
        }
        if (event.id == child) {
            return Meeting::failed; // it is sent again and comes back like any other
        }
        if (!pids.contains(event.value1)) {
            continue;
        }
        if (event.value2 != barrierId || !arrived.insert(event.value1).second) {
            return Meeting::failed;
        }
    }
    return Meeting::passed;
}

void Run::showNoConnection(Machine& machine) const {
    const Source* source = kept(machine, machine.pendingSource);
    const std::string who = source == nullptr ? "()" : source->name + '(' + source->address + ')';
    machine.osd[0] = {"No connection to encoder " + who, 0, {}};
    machine.colour = 2;
    machine.pattern = 2;
}

void Run::showAlarm(Machine& machine, int source) const {
    const Source* shown = kept(machine, source);
    const std::string who = shown == nullptr ? "()" : shown->name + '(' + shown->address + ')';
    const int seconds = history_.settings[static_cast<std::size_t>(*window_.versions.rbegin())].alarmTime;
    machine.osd[1] = {"ALARM: " + who, seconds, whole()};
    machine.osd[2] = {};
    if (!machine.alarmText.empty()) {
        machine.osd[2] = {"Message: " + machine.alarmText, seconds, whole()};
    }
}

void Run::forgetCurrent(Machine& machine) const {
    machine.currentPid = -1;
    machine.currentSource = -1;
    machine.infoSource = -1;
}

void Run::playing(Machine machine) {
    go(machine, machine.automatic ? "AUTO_START_TIMER" : "MANUAL_WAIT_FOR_NEW_SELECTION");
}

// Lock, long press and a disconnection end every waiting state alike.
bool Run::stops(Machine& machine, const Event& event) {
    if (event.id == lock) {
        if (pushBack(machine, event)) {
            go(machine, "STOP_PLAYING");
        }
        return true;
    }
    if (event.id == button && event.value2 != 0) {
        setConnected(machine, "no");
        go(machine, "STOP_PLAYING");
        return true;
    }
    if (event.id == property) {
        const std::set<std::string> possible = possibleConnected(machine);
        if (possible.contains("no")) {
            go(machine, "STOP_PLAYING");
        }
        return possible == std::set<std::string>{"no"};
    }
    return false;
}

} // namespace walk
