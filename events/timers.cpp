#include "events/timers.h"

#include "events/thread_start.h"
#include "process/signal_mask.h"
#include "process/trace_output.h"
#include "recorder/recorder.h"

#include <libcommon/events.h>
#include <libcommon/log.h>

#include <cerrno>
#include <cinttypes>
#include <ctime>
#include <memory>
#include <utility>

namespace {

using timers::TimerRequest;

constexpr int firstId = 65536;
constexpr long shortestSleep = 100000; // nanoseconds; a shorter rest is not slept at all
constexpr std::size_t stackSize = std::size_t{256} * 1024;

// All process-wide state of this file: the id of the next timer. Main thread.
int nextId = firstId;

// Returns the next id. After the largest int come the negative numbers; 0 is never returned.
int takeId() {
    const int id = nextId;
    nextId = static_cast<int>(static_cast<unsigned>(nextId) + 1U);
    if (nextId == 0)
        nextId = firstId;
    return id;
}

// Sleeps for the requested time. False for an invalid time.
bool sleepFor(const TimerRequest& request) {
    timespec rest{static_cast<time_t>(request.seconds), request.nanoseconds};
    while (rest.tv_sec != 0 || rest.tv_nsec >= shortestSleep) {
        printTrace(">>> Timer thread: nanosleep(); timeout=%" PRId64 "s %ldns\n",
                   static_cast<std::int64_t>(rest.tv_sec), rest.tv_nsec);
        if (nanosleep(&rest, &rest) == 0)
            return true;
        if (errno != EINTR)
            return false;
    }
    return true;
}

void* timerThread(void* argument) {
    blockAllSignals();
    const std::unique_ptr<TimerRequest> owned(static_cast<TimerRequest*>(argument));
    const TimerRequest& request = *owned;
    printTrace(">>> Timer thread: timeout=%" PRId64 "s %ldns\n", request.seconds, request.nanoseconds);
    if (!sleepFor(request)) {
        logmsg(3, "setTimeout() was called with an invalid timeout");
        return nullptr;
    }
    printTrace(">>> Timer thread: timeout! sending event\n");
    Event event{};
    event.id = EID_TIMEOUT;
    event.value1 = request.id;
    sendEvent(&event);
    printTrace(">>> Timer thread: sendEvent done\n");
    return nullptr;
}

// The stack is small because any number of timers may sleep at once. When the thread can't be created the timer
// never fires; the caller does not learn of it.
void startThread(std::unique_ptr<TimerRequest> request) {
    if (startDetachedThread(timerThread, request.get(), stackSize, "a timer"))
        (void)request.release(); // the thread deletes it
}

} // namespace

timers::TimerRequest timers::makeRequest(std::int64_t milliseconds, int id) {
    // Kept: the part below a second is multiplied by 1000, not by 1000000.
    return {milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1000, id};
}

void timers::setNextId(int id) {
    nextId = id;
}

namespace {

int startTimer(std::int64_t milliseconds) {
    const int id = takeId();
    auto request = std::make_unique<TimerRequest>(timers::makeRequest(milliseconds, id));
    printTrace(">>> setTimeout(%" PRId64 ", %d)\n", milliseconds, id);
    startThread(std::move(request));
    return id;
}

} // namespace

int setTimeout(std::int64_t milliseconds) {
    return recorder::outcome("timer", [&] { return startTimer(milliseconds); });
}
