#include "launcher/model/checker/step.h"

#include <algorithm>
#include <array>

namespace checker {

namespace {

struct Description {
    Kind kind;
    const char* name;
    int arguments; // printed
    int weight;    // how often it is drawn, relative to the sum of all weights
    bool fromOutside;
};

constexpr std::array descriptions{
    Description{Kind::SELECT, "select", 1, 12, true},
    Description{Kind::ALARM, "alarm", 1, 6, true},
    Description{Kind::LOCK, "lock", 0, 4, true},
    Description{Kind::RECONNECT, "reconnect", 0, 2, true},
    Description{Kind::FLUSH, "flush", 0, 4, true},
    Description{Kind::SHORT_PRESS, "shortPress", 0, 11, true},
    Description{Kind::LONG_PRESS, "longPress", 0, 3, true},
    Description{Kind::TELL_YES, "tellYes", 0, 4, true},
    Description{Kind::TELL_NO, "tellNo", 0, 3, true},
    Description{Kind::OWN_TIMER, "ownTimer", 0, 16, false},
    Description{Kind::STALE_TIMER, "staleTimer", 0, 4, false},
    Description{Kind::EXIT_OF_CURRENT, "exitOfCurrent", 1, 8, false},
    Description{Kind::EXIT_OF_PENDING, "exitOfPending", 1, 4, false},
    Description{Kind::EXIT_OF_UNKNOWN, "exitOfUnknown", 1, 7, false},
    Description{Kind::BARRIER_FAILS, "barrierFails", 0, 3, false},
    Description{Kind::CURRENT_EXITS_AT_BARRIER, "currentExitsAtBarrier", 0, 7, false},
    Description{Kind::PENDING_EXITS_AT_BARRIER, "pendingExitsAtBarrier", 0, 7, false},
    Description{Kind::UNKNOWN_EXITS_AT_BARRIER, "unknownExitsAtBarrier", 0, 7, false},
    Description{Kind::BARRIER_PASSES, "barrierPasses", 0, 16, false},
    Description{Kind::DETECTION_FAILS, "detectionFails", 0, 4, false},
    Description{Kind::DETECTION_INTERRUPTED, "detectionInterrupted", 0, 2, false},
    Description{Kind::LAUNCH_FAILS, "launchFails", 0, 3, false},
    Description{Kind::AUTO_CONNECT, "autoConnect", 1, 0, false},
    Description{Kind::SEQUENCE_MODE, "sequenceMode", 1, 2, false},
    Description{Kind::SOURCES, "sources", 2, 2, false},
    Description{Kind::SECONDS, "seconds", 1, 5, false},
};

constexpr bool everyKindInOrder() {
    for (std::size_t i = 0; i < descriptions.size(); ++i)
        if (static_cast<std::size_t>(descriptions[i].kind) != i)
            return false;
    return descriptions.size() == static_cast<std::size_t>(Kind::SECONDS) + 1;
}
static_assert(everyKindInOrder());

const Description& describe(Kind kind) {
    return descriptions[static_cast<std::size_t>(kind)];
}

// At least 0 and less than the limit; 0 for a limit below 1.
int below(std::mt19937& random, int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(std::max(limit, 1)));
}

Kind randomKind(std::mt19937& random) {
    int sum = 0;
    for (const Description& row : descriptions)
        sum += row.weight;
    int drawn = below(random, sum);
    for (const Description& row : descriptions) {
        drawn -= row.weight;
        if (drawn < 0)
            return row.kind;
    }
    return Kind::SECONDS;
}

// Usually a source that may exist, sometimes one that cannot.
int randomSource(std::mt19937& random) {
    constexpr std::array bad{-1, -5, 99, 2147483647};
    if (below(random, 8) == 0)
        return bad[static_cast<std::size_t>(below(random, static_cast<int>(bad.size())))];
    return below(random, 5);
}

int randomStatus(std::mt19937& random) {
    constexpr std::array statuses{0, 9, 11 << 8, 23 << 8};
    return statuses[static_cast<std::size_t>(below(random, static_cast<int>(statuses.size())))];
}

Step randomSources(std::mt19937& random) {
    const int count = below(random, 8) == 0 ? below(random, 2) : 1 + below(random, 5);
    const int mask = below(random, 8) == 0 ? 0 : 1 + below(random, 31);
    return sources(count, mask);
}

Step randomStep(std::mt19937& random) {
    Step step{randomKind(random)};
    switch (step.kind) {
    case Kind::SELECT:
    case Kind::ALARM:
        step.value = randomSource(random);
        break;
    case Kind::EXIT_OF_CURRENT:
    case Kind::EXIT_OF_PENDING:
        step.value = randomStatus(random);
        break;
    case Kind::EXIT_OF_UNKNOWN:
        step.value = 900 + below(random, 3);
        break;
    case Kind::SEQUENCE_MODE:
        step.value = below(random, 3);
        break;
    case Kind::SOURCES:
        step = randomSources(random);
        break;
    case Kind::SECONDS:
        step.value = 1 + below(random, 30);
        break;
    case Kind::AUTO_CONNECT:
    case Kind::LOCK:
    case Kind::RECONNECT:
    case Kind::FLUSH:
    case Kind::SHORT_PRESS:
    case Kind::LONG_PRESS:
    case Kind::TELL_YES:
    case Kind::TELL_NO:
    case Kind::OWN_TIMER:
    case Kind::STALE_TIMER:
    case Kind::BARRIER_FAILS:
    case Kind::CURRENT_EXITS_AT_BARRIER:
    case Kind::PENDING_EXITS_AT_BARRIER:
    case Kind::UNKNOWN_EXITS_AT_BARRIER:
    case Kind::BARRIER_PASSES:
    case Kind::DETECTION_FAILS:
    case Kind::DETECTION_INTERRUPTED:
    case Kind::LAUNCH_FAILS:
        break;
    }
    step.meanwhile = describe(step.kind).fromOutside && below(random, 4) == 0;
    return step;
}

} // namespace

// clang-format off
Step select(int source)            { return {Kind::SELECT, source}; }
Step alarm(int source)             { return {Kind::ALARM, source}; }
Step lock()                        { return {Kind::LOCK}; }
Step reconnect()                   { return {Kind::RECONNECT}; }
Step flush()                       { return {Kind::FLUSH}; }
Step shortPress()                  { return {Kind::SHORT_PRESS}; }
Step longPress()                   { return {Kind::LONG_PRESS}; }
Step tellYes()                     { return {Kind::TELL_YES}; }
Step tellNo()                      { return {Kind::TELL_NO}; }
Step ownTimer()                    { return {Kind::OWN_TIMER}; }
Step staleTimer()                  { return {Kind::STALE_TIMER}; }
Step exitOfCurrent(int status)     { return {Kind::EXIT_OF_CURRENT, status}; }
Step exitOfPending(int status)     { return {Kind::EXIT_OF_PENDING, status}; }
Step exitOfUnknown(int pid)        { return {Kind::EXIT_OF_UNKNOWN, pid}; }
Step barrierFails()                { return {Kind::BARRIER_FAILS}; }
Step currentExitsAtBarrier()       { return {Kind::CURRENT_EXITS_AT_BARRIER}; }
Step pendingExitsAtBarrier()       { return {Kind::PENDING_EXITS_AT_BARRIER}; }
Step unknownExitsAtBarrier()       { return {Kind::UNKNOWN_EXITS_AT_BARRIER}; }
Step barrierPasses()               { return {Kind::BARRIER_PASSES}; }
Step detectionFails()              { return {Kind::DETECTION_FAILS}; }
Step detectionInterrupted()        { return {Kind::DETECTION_INTERRUPTED}; }
Step launchFails()                 { return {Kind::LAUNCH_FAILS}; }
Step autoConnect(int yes)          { return {Kind::AUTO_CONNECT, yes}; }
Step sequenceMode(int mode)        { return {Kind::SEQUENCE_MODE, mode}; }
Step sources(int count, int mask)  { return {Kind::SOURCES, count, mask}; }
Step seconds(int count)            { return {Kind::SECONDS, count}; }
// clang-format on

Step meanwhile(Step step) {
    step.meanwhile = true;
    return step;
}

std::string text(const Step& step) {
    const Description& row = describe(step.kind);
    std::string call = row.name + std::string("(");
    if (row.arguments > 0)
        call += std::to_string(step.value);
    if (row.arguments > 1)
        call += ", " + std::to_string(step.second);
    call += ")";
    return step.meanwhile ? "meanwhile(" + call + ")" : call;
}

std::string text(const Steps& steps) {
    std::string list;
    for (const Step& step : steps)
        list += "        " + text(step) + ",\n";
    return "    const Steps steps{\n" + list + "    };\n    EXPECT_EQ(check(steps), \"\");\n";
}

Steps randomSteps(std::mt19937& random, int count) {
    Steps steps{autoConnect(below(random, 8) == 0 ? 0 : 1), sequenceMode(below(random, 2)),
                randomSources(random)};
    while (static_cast<int>(steps.size()) < count)
        steps.push_back(randomStep(random));
    return steps;
}

} // namespace checker
