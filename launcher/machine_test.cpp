#include "launcher/machine_test.h"

#include <utility>

namespace {

constexpr int sourceCount = 8;

} // namespace

void resetWorld() {
    fake::reset();
    fake::resetEvents();
    fake::resetLauncher();
    fake::resetPlayer();
    fake::resetSourcesCache();
    process.verbosity = 0;
    process.mode = MODE_AUTO;
    process.currentPID = -1;
    process.pendingPID = -1;
}

SourceParams makeSource(int index) {
    const std::string number = std::to_string(index);
    return {{"Name", "Cam " + number},
            {"Address", "10.0.0." + number},
            {"DisplayTime", "10"},
            {"AutoEnabled", "yes"},
            {"ManualEnabled", "yes"}};
}

Event shortPress() {
    return fake::event(EID_BUTTON, 0, 0);
}

Event longPress() {
    return fake::event(EID_BUTTON, 0, 1);
}

Event alarm(int source, const char* text) {
    Event event = fake::event(EID_ALARM, source);
    libcommon::setEventText(event, text);
    return event;
}

Event childExit(int pid, int status) {
    return fake::event(EID_CHILD, pid, status);
}

MachineTest::MachineTest() {
    resetWorld();
    for (int index = 0; index < sourceCount; ++index) {
        fake::sources.push_back(makeSource(index));
        fake::addSource(index, "key " + std::to_string(index));
    }
    fake::setParam(0, "Decoder.SequenceMode", "auto");
    fake::setParam(0, "Decoder.Connected", "yes");
    fake::setParam(0, "Decoder.AutoDetectTimeout", "5");
    fake::setParam(0, "Alarm.DisplayTime", "20");
    fake::now = 1'000'000'000;
    startMachine();
}

void MachineTest::enter(State state) {
    machine.sources = getSubGroups(0, "Encoder");
    if (machine.sourceSequence.empty())
        machine.sourceSequence = {0, 1, 2};
    machine.autoDetectTimeout = 5'000'000;
    setState(state);
    fake::calls.clear();
    fake::log.clear();
}

void MachineTest::playing(int source) {
    process.currentPID = currentPlayer;
    machine.currentSource = source;
    machine.pendingSource = source;
    fake::setParam(1, "Decoder.Info.CurrentSource", std::to_string(source));
}

void MachineTest::launching(int source) {
    process.pendingPID = pendingPlayer;
    machine.pendingSource = source;
}

void MachineTest::turn(const std::vector<Event>& events) {
    for (const Event& event : events)
        ASSERT_TRUE(fake::deliver(event));
    runState();
    calls = std::exchange(fake::calls, {});
    log = std::exchange(fake::log, {});
}

void MachineTest::turnThatWaits(const std::vector<Event>& events) {
    for (const Event& event : events)
        ASSERT_TRUE(fake::deliver(event));
    EXPECT_THROW(runState(), fake::WouldBlock);
    calls = std::exchange(fake::calls, {});
    log = std::exchange(fake::log, {});
}

std::string state() {
    return stateName(machine.currentState);
}

std::vector<int> queuedIds() {
    std::vector<int> ids;
    ids.reserve(fake::queue.size());
    for (const Event& event : fake::queue)
        ids.push_back(event.id);
    return ids;
}
