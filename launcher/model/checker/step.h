// The steps of a checker run: the things that can happen to the machine.
//
// A run is a list of steps. Each kind of step has a function that makes it, and a step prints as the call of this
// function, so that a printed list can be pasted into a test.
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
    // the outcome of the next barrier, detection or launch
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
    bool meanwhile = false; // happens the next time the machine is busy, not while it waits
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
Step tellYes(); // "Decoder.Connected" is written, and the change is announced
Step tellNo();

Step ownTimer();   // the timer that was armed last expires
Step staleTimer(); // an earlier timer expires

Step exitOfCurrent(int status); // wait status
Step exitOfPending(int status);
Step exitOfUnknown(int pid);

Step barrierFails(); // without an exit: a wrong barrier, or a second arrival
Step currentExitsAtBarrier();
Step pendingExitsAtBarrier();
Step unknownExitsAtBarrier();
Step barrierPasses(); // the default outcome; later outcomes in the list then apply to later barriers
Step detectionFails();
Step detectionInterrupted();
Step launchFails();

Step autoConnect(int yes);   // whether it connects at start
Step sequenceMode(int mode); // the text in the parameter file: 0 auto, 1 manual, 2 an illegal one
Step sources(int count, int enabledMask); // configured sources; source 3 is the same input as source 1
Step seconds(int count);

Step meanwhile(Step step); // for events from outside

// The step, printed as the call that makes it.
std::string text(const Step& step);

// The list, printed as it is written in a test.
std::string text(const Steps& steps);

// `count` steps; the first ones are the configuration that the machine starts with.
Steps randomSteps(std::mt19937& random, int count);

} // namespace checker
