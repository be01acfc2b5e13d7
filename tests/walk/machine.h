// The walk's model of the state machine: what it may do next, given what is known to have happened.
//
// The log shows which events entered the queue and in which order, but not the moment at which the machine
// looked. So the model keeps every machine that agrees with what was seen so far. A transition that none of
// them can make is a violation. One Run tries one machine in one window: the time from the transition into its
// state to the next transition.
#pragma once

#include "tests/walk/history.h"

#include <functional>
#include <set>

namespace walk {

// How late a reaction may be on an overloaded machine.
inline constexpr Time lateness = 8 * second;

enum Id {
    child = 2,
    button = 4,
    timeout = 6,
    barrier = 7,
    alarm = 8,
    property = 9,
    flush = 10,
    select = 11,
    lock = 12,
    reconnect = 13
};

struct Event {
    int id = 0;
    int value1 = 0;
    int value2 = 0;
    Time time = 0;
    int order = -1;      // place within the window; -1: it was there before
    bool pushed = false; // put back in this window; its values are filled in later
    bool operator==(const Event&) const = default;
};

struct Span {
    Time low = 0;
    Time high = 0;
    bool operator==(const Span&) const = default;
};

struct Timer {
    int id = 0;
    long milliseconds = 0;
    Span armed;
    bool operator==(const Timer&) const = default;
};

struct OsdLine {
    std::string text;
    int seconds = 0; // 0: until it is cleared
    Span shown;
    bool operator==(const OsdLine&) const = default;
};

// One machine that agrees with the history.
struct Machine {
    std::string state = "NULL";
    bool automatic = true;
    int currentPid = -1;
    int pendingPid = -1;
    int currentSource = -1;
    int pendingSource = -1;
    std::vector<int> sequence;
    int sequencePos = -1;
    int list = 0; // version of the settings whose source list is kept
    bool paused = false;
    int sequenceTimer = 0;
    int sleepTimer = 0;
    int lockTimer = 0;
    Span sequenceStart{-1, -1};
    int detectTimeout = 10;
    Span lastAlarm{0, 0};
    std::string alarmText;
    std::vector<Event> queue;
    int known = -1; // events of the window up to this order were certainly there
    std::set<std::string> cache;
    std::set<std::string> connected{"?"}; // possible values of Decoder.Connected
    bool wroteConnected = false;          // in this window
    // Visible effects.
    OsdLine osd[3];
    int colour = 0;
    int pattern = 0;
    int infoSource = -1;
    std::string infoConnected;
    std::size_t blanks = 0;
    std::vector<int> launchedFor; // sources, in the order of launches
    std::vector<int> hangUps;     // pids that were sent SIGHUP
    std::vector<Timer> timers;
    Time cause = 0; // since when it could make its last transition
    bool operator==(const Machine&) const = default;
};

struct Window {
    Time begin = 0;
    Time end = 0;
    std::vector<Event> events;
    std::set<int> dropped; // identifiers of events that the full queue refused to take back
    std::vector<std::string> texts;
    std::set<int> versions;         // of the settings that may have been read
    std::set<std::string> connects; // values of Decoder.Connected that the walk wrote in the meantime
    std::set<std::string> videos;   // addresses of encoders that delivered video
    std::set<std::string> moves;    // "ADDRESS PRESET"
    bool interrupted = false;       // the event thread sent SIGUSR1
};

class Run {
public:
    Run(const History& history, const Window& window) : history_(history), window_(window) {}

    // The machine after each transition that it can make in the window.
    std::vector<Machine> outcomes(Machine machine);

    // The machine after the effects that its state has before it waits: texts, LED, blank screen.
    Machine resting(Machine machine) const;

private:
    using Next = std::function<void(Machine)>;
    using Seen = std::function<void(Machine, Event)>;
    using Detected = std::function<void(Machine, bool)>;
    // Acts on an event: true when no later event can matter.
    using React = std::function<bool(Machine&, const Event&)>;
    using Ids = std::vector<int>;
    enum class Meeting { passed, failed, waiting };

    // Steps that handlers share.
    void go(Machine machine, const std::string& state);
    bool said(const std::string& text) const;
    int find(const Machine& machine, const Ids& ids) const;
    Event take(Machine& machine, int place) const;
    bool takeFirst(Machine& machine, const Ids& ids, Event& event) const;
    void peek(const Machine& machine, const Ids& ids, const Seen& seen, const Next& unseen) const;
    void wait(Machine machine, const Ids& ids, const React& react) const;
    bool pushBack(Machine& machine, Event event) const;
    void clear(const Machine& machine, const Next& next) const;
    void setConnected(Machine& machine, const std::string& value) const;
    std::set<std::string> possibleConnected(const Machine& machine) const;
    const Source* kept(const Machine& machine, int index) const;
    int arm(Machine& machine, long milliseconds, Span when) const;
    Span whole() const { return {window_.begin, window_.end}; }
    void entry(const Machine& machine, int index, const Detected& next) const;
    bool moved(const Machine& machine, int index) const;
    bool ended(Machine& machine, int source, const Event& event) const;
    bool invalidated(Machine& machine, int source) const;
    Meeting meet(Machine& machine, int barrierId, const std::set<int>& pids) const;
    void showNoConnection(Machine& machine) const;
    void showAlarm(Machine& machine, int source) const;
    void forgetCurrent(Machine& machine) const;
    void playing(Machine machine);
    bool stops(Machine& machine, const Event& event);
    void tryAlarm(Machine& machine, const Event& event, bool& certain);

    // A state in which a player ends, or a barrier passes first. `onEnd` says which child goes where.
    void meetOr(Machine machine, int barrierId, bool current, bool pending, const std::string& passed,
                const std::string& pendingEnded, const std::string& currentEnded);
    void awaitCurrentEnd(Machine machine, const std::string& next);

    // Handlers, one per state.
    void start(Machine machine);
    void connect(Machine machine);
    void connectWith(Machine machine, int version);
    void connectNoSource(Machine machine);
    void disconnected(Machine machine);
    bool disconnectedEvent(Machine& machine, const Event& event);
    void locked(Machine machine);
    void flushCache(Machine machine);
    void requestEncoder(Machine machine);
    void requestDone(Machine machine, bool detected);
    void pauseBefore(Machine machine);
    void selectSource(Machine machine);
    void sendOnlyPtz(Machine machine);
    void stopPlaying(Machine machine);
    void shutdownCurrent(Machine machine, const std::string& passed, const std::string& failed);
    void playingStopped(Machine machine);
    void launch(Machine machine, const std::string& next, bool alone);
    void started(Machine machine);
    void switchPlayer(Machine machine);
    void crashedDuringPendingLaunch(Machine machine);
    void crashedDuringSwitch(Machine machine);
    void bothDown(Machine machine);
    void couldNotLaunch(Machine machine);
    void crashedDuringPlaying(Machine machine);
    void requestFailed(Machine machine);
    void stoppedAfterFailure(Machine machine);
    void setSleep(Machine machine, long milliseconds);
    void autoStartTimer(Machine machine);
    void autoWait(Machine machine);
    void autoPause(Machine machine);
    void directSelect(Machine machine);
    void nextSource(Machine machine);
    void crashedDuringPause(Machine machine);
    void autoSleep(Machine machine, bool pressSkips, const std::string& next);
    void requestAfterPauseCrash(Machine machine);
    void timeLeft(Machine machine);
    void manualWait(Machine machine);
    void manualAlarm(Machine machine);
    void manualSleep(Machine machine);

    const History& history_;
    const Window& window_;
    std::vector<Machine> results_;
};

} // namespace walk
