#include "events/event_handler.h"

#include "events/event_queue.h"
#include "events/thread_start.h"
#include "process/agreed_numbers.h"
#include "process/process_state.h"
#include "process/signal_mask.h"
#include "recorder/recorded.h"

#include <libcommon/log.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <semaphore.h>

namespace {

// The process-wide state of this file. Never destroyed, because the thread still runs while the process exits.

// Posted by the thread once it has dropped the events from before its start.
sem_t takesEvents;

// The thread's handle on the decoder's parameters. The thread opens it; every access reads the current value.
const recorded::Parameters& parameters() {
    static const recorded::Parameters& handle = *new recorded::Parameters(0, true);
    return handle;
}

// The reason to interrupt a busy main thread; null when there is none.
const char* reasonToDisturb(const Event& event) {
    switch (event.id) {
    case EID_CONNECTPROPERTYCHANGED:
        return parameters()["Decoder.Connected"] == "no"
                   ? "EID_CONNECTPROPERTYCHANGED && Decoder.Connected=no"
                   : nullptr;
    case EID_LOCK:
        return "EID_LOCK";
    case EID_BUTTON:
        if ((event.value2 & buttonHeldMask) != 0)
            return "EID_BUTTON && button.hold";
        return getMode() == MODE_MANUAL ? "EID_BUTTON && !button.hold && mode==MODE_MANUAL"
                                        : "EID_BUTTON && !button.hold && mode==MODE_AUTO";
    case EID_SELECT:
        return "EID_SELECT";
    }
    return nullptr;
}

void disturb(const Event& event) {
    const char* reason = reasonToDisturb(event);
    if (reason == nullptr)
        return;
    logmsg(7, "eventHandler() Spotted %s. Sending SIGUSR1", reason);
    kill(process.supervisorPid, SIGUSR1);
}

void* eventHandler(void*) {
    blockAllSignals();
    recorder::recordAsEventHandler();
    parameters();
    logmsg(7, "eventHandler() started");
    clearEventQueue();
    sem_post(&takesEvents);
    Event event{};
    while (waitEvent(&event) == 0) {
        recorded::noteArrival(event);
        handleIncomingEvent(event);
    }
    logmsg(3, "waitEvent() failed in eventHandler()");
    logmsg(7, "eventHandler() stopped");
    return nullptr;
}

// A busy machine may run the thread late. An event that is sent until then would be dropped: the announcement of the
// first player, for which the state machine then waits.
void awaitStart() {
    constexpr time_t longestWait = 5; // seconds
    timespec until{};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += longestWait;
    while (sem_clockwait(&takesEvents, CLOCK_MONOTONIC, &until) != 0 && errno == EINTR) {
    }
}

} // namespace

void handleIncomingEvent(const Event& event) {
    if (event.id == EID_ALARM && parameters()["Alarm.Enabled"] != "yes")
        return;
    deliverEvent(event, disturb);
}

void startEventHandler() {
    sem_init(&takesEvents, 0, 0);
    if (startDetachedThread(eventHandler, nullptr, 0, "the event handler"))
        awaitStart();
}
