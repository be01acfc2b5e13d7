// For tests: lets another thread wait until the taker sleeps in a blocking take.
#pragma once

#include "events/event_queue.h"

#include <atomic>
#include <thread>

// Spins until the taker sleeps, without waking it: it delivers an event whose limit is 0, which is dropped, and the
// call tells only whether the taker is busy.
inline void untilTakerSleeps() {
    static std::atomic<bool> busy;
    constexpr int unusedId = 0;
    setQueueLimit(unusedId, 0);
    do {
        busy = false;
        deliverEvent(Event{}, [](const Event&) { busy = true; });
        std::this_thread::yield();
    } while (busy);
}
