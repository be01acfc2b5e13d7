// What can happen to the machine, one thing at a time.
//
// A run of the checker is a list of steps. Each step is made by a function of its own, and prints as the call
// of that function, so that a printed list can be pasted into a test.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace checker {

enum class Kind {
    // events from outside
    SELECT,
    ALARM,
    LOCK,
    RECONNECT,
    FLUSH,
    SHORT_PRESS,
    LONG_PRESS,
    TELL_YES,
    TELL_NO,
    // timers and children
    OWN_TIMER,
    STALE_TIMER,
    EXIT_OF_CURRENT,
    EXIT_OF_PENDING,
    EXIT_OF_UNKNOWN,
    // what the next barrier, detection, launch comes to
    BARRIER_FAILS,
    CURRENT_EXITS_AT_BARRIER,
    PENDING_EXITS_AT_BARRIER,
    UNKNOWN_EXITS_AT_BARRIER,
    BARRIER_PASSES,
    DETECTION_FAILS,
    DETECTION_INTERRUPTED,
    LAUNCH_FAILS,
    // configuration and time
    AUTO_CONNECT,
    SEQUENCE_MODE,
    SOURCES,
    SECONDS,
};

struct Step {
    Kind kind;
    int value = 0;
    int second = 0;
    bool meanwhile = false; // comes while the machine is busy next, not while it waits
    bool operator==(const Step&) const = default;
};

using Steps = std::vector<Step>;

Step select(int source);
Step alarm(int source);
Step lock();
Step reconnect();
Step flush();
Step shortPress();
Step longPress();
Step tellYes(); // "Decoder.Connected" is written, and the change announced
Step tellNo();

Step ownTimer();   // the timer armed last runs out
Step staleTimer(); // one armed earlier does

Step exitOfCurrent(int status); // wait status
Step exitOfPending(int status);
Step exitOfUnknown(int pid);

Step barrierFails(); // without an exit: a wrong barrier, an arrival twice
Step currentExitsAtBarrier();
Step pendingExitsAtBarrier();
Step unknownExitsAtBarrier();
Step barrierPasses(); // as without a step; leaves what comes after it for the next barrier
Step detectionFails();
Step detectionInterrupted();
Step launchFails();

Step autoConnect(int yes);                // whether it connects at the start
Step sequenceMode(int mode);              // what the parameter file says: 0 auto, 1 manual, 2 nonsense
Step sources(int count, int enabledMask); // configured sources; source 3 is the same input as source 1
Step seconds(int count);

Step meanwhile(Step step); // for events from outside

// The step as the call that makes it.
std::string text(const Step& step);

// The list as it stands in a test.
std::string text(const Steps& steps);

// `count` steps, the first of them the configuration that the machine starts with.
Steps randomSteps(std::mt19937& random, int count);

} // namespace checker
